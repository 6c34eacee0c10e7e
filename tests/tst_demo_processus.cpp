#include "bancservice.h"

#include <QProcess>
#include <QSharedMemory>
#include <QUdpSocket>

// The daemon between the appliance simulator and the network simulator. This process reads
// the segments at the main application's byte positions and types commands to the appliance.
class TestDemoProcessus : public QObject
{
    Q_OBJECT
    BacASable bac;
    const quint16 port = BacASable::portLibre();
    QProcess appareil, reseau, daemon; // the daemon is stopped first
    QByteArray sortie;
    QSharedMemory etat, demande, tessalin;

    uchar *octets(QSharedMemory &zone) { return static_cast<uchar *>(zone.data()); }
    double mesure(int voie) { return Champs::lireNombre<double>(octets(etat) + 8 + 8 * voie); }
    void setMesure(int voie, double v) { Champs::ecrireNombre(octets(etat) + 8 + 8 * voie, v); }
    // A cycle begun after this call, told by the heartbeat byte.
    bool cycle()
    {
        octets(demande)[81] = 0;
        return QTest::qWaitFor([this] { return octets(demande)[81] == 1; }, 20000);
    }

private slots:
    void initTestCase()
    {
        bac.activer(port); // for this process and the three it starts
        QFile fichier(bac.chemin("/root/br_itessalin.txt"));
        QVERIFY(fichier.open(QIODevice::WriteOnly) && fichier.write("fd00::1\n") &&
                fichier.flush());
        connect(&appareil, &QProcess::readyReadStandardOutput, this,
                [this] { sortie += appareil.readAllStandardOutput(); });
        appareil.start(REPERTOIRE_OUTILS "/simulateur_appareil/simulateur_appareil",
                       {"--sans-tableau"});
        appareil.write("voie 1 RADIO 00000011 0\nvoie 2 RADIO 00000012:x 1 1.5\nvoie 3 \"RADIO "
                       "Contact\" 00000013 0\nvoie 4 RADIO 00000013 2\nvoie 5 PT100 \"\" 0\n");
        QTRY_VERIFY_WITH_TIMEOUT(sortie.contains("channel 5:"), 20000);
        etat.setKey("Etat_iTessalin");
        demande.setKey("Demande_enreg");
        tessalin.setKey("Config_iTessalin");
        QVERIFY(etat.attach() && demande.attach() && tessalin.attach());
        setMesure(5, 99.25);
        reseau.start(REPERTOIRE_OUTILS "/simulateur_reseau/simulateur_reseau",
                     {"--module", "module=00000011 periode=1 valeur=21.5", "--module",
                      "module=00000012 type=B periode=1 valeur2=-5.2", "--module",
                      "module=00000013 type=E periode=1 valeur=0.5"});
        daemon.start(CHEMIN_DAEMON, {"-periode", "1"});
    }

    // Stopped gently and in order, so that the appliance simulator, the last
    // one attached, removes its segments.
    void cleanupTestCase()
    {
        for (QProcess *p : {&daemon, &reseau, &appareil}) {
            p->terminate();
            QVERIFY(p->waitForFinished(10000));
        }
    }

    void chaqueVoieRadioPublieeAvecSonOffset()
    {
        const QList<QPair<int, double>> attendus{{1, 21.5}, {2, -5.2 + 1.5}, {3, 1.0}, {4, 3.6}};
        for (const auto &a : attendus)
            QTRY_COMPARE_WITH_TIMEOUT(mesure(a.first), a.second, 20000);
        // Written again by every cycle; never the wired channel 5.
        for (const auto &a : attendus)
            setMesure(a.first, 99.25);
        QVERIFY(cycle() && cycle());
        for (const auto &a : attendus)
            QCOMPARE(mesure(a.first), a.second);
        QCOMPARE(mesure(5), 99.25);
        QCOMPARE(Champs::octetsTexte(octets(tessalin) + 1124, 50), "fd00::1\n");
        QCOMPARE(octets(demande)[0], uchar(1)); // config_modifiee
    }

    void demandeEnregistrementEtChangementDeType()
    {
        // A module heard once, so that nothing rewrites its record meanwhile.
        QUdpSocket().writeDatagram("A00000098:BR:260:100:36", QHostAddress::LocalHostIPv6, port);
        const QString base = bac.chemin("/var/base/hf.db");
        const QString sql = "select date_changement_pile from modules where module = '00000098'";
        QTRY_COMPARE_WITH_TIMEOUT(requete(base, sql), QStringList{"-1"}, 20000);
        // Its Zone_HF record is written after that row and before its measure.
        QTRY_COMPARE_WITH_TIMEOUT(
            requete(base, "select count(*) from mesures_hf where module = '00000098'"),
            QStringList{"1"}, 20000);
        appareil.write("pile 00000098 1700000123\nenregistrer\n");
        QTRY_VERIFY_WITH_TIMEOUT(sortie.contains("save request raised"), 20000);
        QTRY_COMPARE_WITH_TIMEOUT(octets(demande)[80], uchar(0), 20000);
        QCOMPARE(requete(base, sql), QStringList{"1700000123"});

        // A channel turned into a wired one is no longer written.
        appareil.write("voie 1 PT100 00000011 0 0\n");
        QTRY_VERIFY_WITH_TIMEOUT(sortie.contains("channel 1: type 1 (PT100)"), 20000);
        QVERIFY(cycle()); // one begun after the change drops the channel
        setMesure(1, 99.25);
        setMesure(2, 99.25);
        QVERIFY(cycle() && cycle());
        QCOMPARE(mesure(1), 99.25);
        QCOMPARE(mesure(2), -5.2 + 1.5);
    }
};

QTEST_GUILESS_MAIN(TestDemoProcessus)
#include "tst_demo_processus.moc"
