// The daemon seen from outside: real datagrams reach "Zone_HF", `modules` and
// `mesures_hf`, garbage does not stop it, and it binds the appliance's address.

#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include "udp/qserveurudp.h"

#include <QUdpSocket>
#include <QtTest>

#include <sched.h>

class TestReceptionProcessus : public QObject
{
    Q_OBJECT

    BacASable bac;
    DoublureApplication doublure;
    quint16 port = 0;
    QProcess daemon;
    QHostAddress adresse{QHostAddress::LocalHostIPv6};

    // Sends a reading of module 900, which lands in slot 0; once "Zone_HF"
    // shows it, everything sent before has been dealt with.
    bool traitee(int valeur)
    {
        QUdpSocket().writeDatagram("A900:br:20:" + QByteArray::number(valeur * 10), adresse, port);
        return texte(doublure.octetsZoneHF(), 0, VALEUR) == QByteArray::number(valeur);
    }
    void demarrer(const QString &variableRetiree = {})
    {
        daemon.kill(); // the previous test's
        daemon.waitForFinished();
        std::memset(doublure.donnees("Zone_HF"), 0, 21600);
        QFile::remove(bac.chemin("/var/base/hf.db"));
        QProcessEnvironment env = bac.environnement(port = BacASable::portLibre());
        env.remove(variableRetiree);
        daemon.setProcessEnvironment(env);
        daemon.setStandardErrorFile(QProcess::nullDevice()); // "-log" writes a lot
        daemon.start(CHEMIN_DAEMON, {"-log"});
        QTRY_VERIFY_WITH_TIMEOUT(traitee(1), 20000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(DoublureApplication::creerBaseAppareil(bac.chemin("/var/base/itessalin.db"),
                                                       {"RJ45", "RADIO", "RADIO Contact"}));
        bac.activer(0); // the segments go to the sandbox's directory, as the daemon's
        QString raison;
        QVERIFY2(doublure.creerZones(&raison), qPrintable(raison));
    }

    void tramesDeChaqueTypeArriventPartout()
    {
        demarrer();
        const QStringList attendus = // frame|valeur|pile|alim
            QString("A101:br:20:215:36|21.5|3.6|0 "
                    "B102:br:20:201:-52:36|20.1:-5.2|3.6|0 "
                    "C103:br:20:-7:30|-0.7|3|0 D104:br:20:1000:5:29|100:0.5|2.9|0 "
                    "E105:br:20:201:455:33:1|20.1:45.5|3.3|1 "
                    "F106:br:20:1234567|123457|0|0 G107:br:20:5:12|0.5|1.2|0 "
                    "R108:br:20:36||3.6|0 Z109:br:20||0|0")
                .split(' ');
        // Twice: the first frame finds the module absent, the second under br.
        for (int tour = 0; tour < 2; ++tour) {
            for (const QString &a : attendus)
                QUdpSocket().writeDatagram(a.section('|', 0, 0).toUtf8(), adresse, port);
        }
        QTRY_VERIFY_WITH_TIMEOUT(traitee(2), 20000);
        const QByteArray z = doublure.octetsZoneHF();
        for (const QString &a : attendus) {
            const QStringList v = a.split('|');
            const QString n = v.at(0).mid(1, 3), type = v.at(0).left(1);
            QCOMPARE(enregistrement(z, slotDe(z, n.toLatin1())),
                     QString("1|%1|br|%2|%3|%4|2|-11|1|-1").arg(n, type, v.at(1), v.at(2)));
            const QString mesure =
                QString("br|%1|2|%3|%2|-1|%2|%3|%4|2").arg(type, v.at(1), v.at(2), v.at(3));
            const QString sql = "select m.parent, m.type, m.rank, m.batterie, m.valeur, "
                                "m.date_changement_pile, h.valeur, h.batterie, h.alim, h.rank "
                                "from modules m join mesures_hf h using (module) where module = ";
            QCOMPARE(lignes(bac.chemin("/var/base/hf.db"), sql + n), mesure + '\n' + mesure);
        }
    }

    void datagrammesAleatoiresNArretentPasLeDaemon()
    {
        demarrer();
        const QByteArrayList modeles = {"A1:0:20:215:36", "B7:3:15:201:-52:36",
                                        "E7:3:20:201:455:33:1", "R5:1:10:36"};
        QRandomGenerator hasard(20261115); // fixed, so that a failure can be replayed
        for (int i = 1; i <= 3000; ++i) {
            // A frame with a few bytes changed, or any bytes (at times too many).
            QByteArray d = modeles.at(hasard.bounded(modeles.size()));
            if (i % 2)
                d = QByteArray(hasard.bounded(i % 50 == 1 ? 1500 : 80), 0);
            for (int k = i % 2 ? d.size() : hasard.bounded(4); k > 0; --k)
                d[i % 2 ? k - 1 : hasard.bounded(d.size())] = char(hasard.bounded(256));
            QUdpSocket().writeDatagram(d, adresse, port);
            // Each batch dealt with before the next, so that none is dropped.
            if (i % 100 == 0)
                QTRY_VERIFY_WITH_TIMEOUT(traitee(i), 30000);
        }
        QCOMPARE(daemon.state(), QProcess::Running);
    }

    void adresseParDefautDansUnEspaceReseauPropre()
    {
        // In a network namespace of its own, the loopback takes the appliance's address.
        if (::unshare(CLONE_NEWNET) != 0)
            QSKIP("network namespaces are not allowed here");
        adresse = QHostAddress(QServeurUdp::ADRESSE_DEFAUT);
        const QString ip =
            "PATH=$PATH:/sbin:/usr/sbin; ip addr add $0/128 dev lo && ip link set lo up";
        if (QProcess::execute("sh", {"-c", ip, QServeurUdp::ADRESSE_DEFAUT}) != 0)
            QSKIP("the loopback cannot take the appliance's address here");
        demarrer("ACQUISITIONRADIO_ADRESSE");
        // Bound to that address alone, not to every address.
        QUdpSocket autre;
        QVERIFY(autre.bind(QHostAddress(QHostAddress::LocalHostIPv6), port,
                           QUdpSocket::DontShareAddress));
    }
};

QTEST_GUILESS_MAIN(TestReceptionProcessus)
#include "tst_reception_processus.moc"
