// The daemon seen from outside while the world around it fails: the main
// application's segments missing at start or recreated by its restart, the
// border-router address file arriving late, and the init and border-router
// scripts missing, failing or slow.

#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include <QUdpSocket>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>

namespace {
const QByteArray MODULE_A = "00000011"; // channel 1, heard all along
const QByteArray MODULE_B = "00000012"; // channel 2, heard once in the script tests
constexpr int TYPE_RADIO = 1;
const QString ADRESSE_BR = QStringLiteral("/root/br_itessalin.txt");
const QString ERREUR_ZONE_HF =
    QStringLiteral("Erreur zone.attach() sur fonctions_bases::setModule 00000011 : ");
const QStringList SCRIPTS = {"/etc/init.d/tunslip6", "/etc/scripts/reset_br.sh",
                             "/etc/scripts/repair_br.sh"};

// The acquisition lines' date, or the server lines' date, time and tag.
const QRegularExpression
    ENTETE(QStringLiteral("^\\d\\d/\\d\\d/\\d{4} (\\d\\d:\\d\\d:\\d\\d \\(serveur_udp\\) )?"));
const QString ENTETE_SERVEUR =
    QStringLiteral("\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d \\(serveur_udp\\) ");
const QRegularExpression LIGNE_SERVEUR('^' + ENTETE_SERVEUR);

// The multi-threaded libfaketime, in the distribution's library directory.
QString bibliothequeFaketime()
{
    const QStringList dossiers = QDir("/usr/lib").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &d : dossiers) {
        if (QFile::exists("/usr/lib/" + d + "/faketime/libfaketimeMT.so.1"))
            return "/usr/lib/" + d + "/faketime/libfaketimeMT.so.1";
    }
    return {};
}

// Attaching tells whether a segment still exists; the probe's own detach
// removes it when nobody else holds it, as any last user's does.
bool existe(const QString &cle)
{
    QSharedMemory sonde(cle);
    return sonde.attach(QSharedMemory::ReadOnly);
}
} // namespace

class TestPannesProcessus : public QObject
{
    Q_OBJECT

    std::unique_ptr<BacASable> bac;
    std::unique_ptr<DoublureApplication> doublure;
    QProcess daemon;
    QStringList brutes, textes; // the daemon's lines, and the same without their heading
    QByteArray entame;          // a line not yet ended
    quint16 port = 0;
    double valeur = 21.5;       // what module A sends
    int intervalleTrames = 500; // ms between readings of module A while waiting, 0 for none

    void lire()
    {
        entame += daemon.readAllStandardError();
        const int fin = entame.lastIndexOf('\n');
        if (fin < 0)
            return;
        const QStringList nouvelles = QString::fromUtf8(entame.left(fin)).split('\n');
        entame.remove(0, fin + 1);
        for (const QString &ligne : nouvelles) {
            brutes << ligne;
            textes << QString(ligne).remove(ENTETE);
        }
    }

    // Lines equal to `texte`, or beginning with it when it ends with a blank.
    int compter(const QString &texte) const
    {
        const bool prefixe = texte.endsWith(' ');
        return int(std::count_if(textes.cbegin(), textes.cend(), [&](const QString &l) {
            return prefixe ? l.startsWith(texte) : l == texte;
        }));
    }
    int cycles() const { return compter("début recuperer_mesures"); }

    void trame(const QByteArray &module)
    {
        QUdpSocket().writeDatagram("A" + module +
                                       ":br:20:" + QByteArray::number(qRound(valeur * 10)) + ":36",
                                   QHostAddress(QHostAddress::LocalHostIPv6), port);
    }

    // Polls `condition`, module A speaking meanwhile; false after `ms`.
    bool attendre(const std::function<bool()> &condition, int ms = 15000)
    {
        QElapsedTimer chrono;
        chrono.start();
        qint64 prochaine = 0;
        while (!condition()) {
            if (chrono.elapsed() > ms)
                return false;
            if (intervalleTrames > 0 && chrono.elapsed() >= prochaine) {
                trame(MODULE_A);
                prochaine = chrono.elapsed() + intervalleTrames;
            }
            QTest::qWait(50);
        }
        return true;
    }
    bool cyclesEnPlus(int n)
    {
        const int depart = cycles();
        return attendre([&] { return cycles() >= depart + n; });
    }

    // The zones not there yet, but one, made; the two radio channels and the
    // address file written.
    bool preparer(const QString &zoneAbsente = {})
    {
        const QStringList cles = DoublureApplication::cles();
        for (const QString &cle : cles) {
            if (cle != zoneAbsente && !doublure->zonePresente(cle) && !doublure->creerZone(cle))
                return false;
        }
        doublure->ecrireVoie(1, TYPE_RADIO, MODULE_A, 0, 0.0);
        doublure->ecrireVoie(2, TYPE_RADIO, MODULE_B, 0, 0.0);
        return ecrireFichier(ADRESSE_BR, "fd00::1\n");
    }
    bool ecrireFichier(const QString &absolu, const QByteArray &contenu)
    {
        QFile fichier(bac->chemin(absolu));
        return fichier.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
               fichier.write(contenu) == contenu.size();
    }

    // Under libfaketime, preloaded rather than through its wrapper, which
    // would outlive a stop, the daemon's clock and timers run 200 times faster.
    void demarrer(const QStringList &arguments, const QString &faketime = {})
    {
        brutes.clear();
        textes.clear();
        entame.clear();
        QProcessEnvironment env = bac->environnement(port = BacASable::portLibre());
        if (!faketime.isEmpty()) {
            env.insert("LD_PRELOAD", faketime);
            env.insert("FAKETIME", "+0 x200");
            // An address-sanitizer build would refuse a library loaded before it.
            const QString asan = env.value("ASAN_OPTIONS");
            env.insert("ASAN_OPTIONS", (asan.isEmpty() ? asan : asan + ':') +
                                           QStringLiteral("verify_asan_link_order=0"));
        }
        daemon.setProcessEnvironment(env);
        daemon.start(CHEMIN_DAEMON, arguments);
    }

    // What the main application sees: channel 1's value, module A's record,
    // heartbeat, save request, border-router address and its change flag.
    QString etat() const
    {
        const QByteArray z = doublure->octetsZoneHF();
        const int slot = slotDe(z, MODULE_A);
        return QStringLiteral("%1|%2|%3|%4|%5|%6")
            .arg(doublure->mesure(1))
            .arg(QString::fromLatin1(slot < 0 ? QByteArray("-") : texte(z, slot, VALEUR)))
            .arg(doublure->octetDemande(81))
            .arg(doublure->octetDemande(80))
            .arg(QString::fromLatin1(doublure->adresseBR()))
            .arg(doublure->octetDemande(0));
    }
    // Clears what the daemon writes and asks for a save, then waits for all of
    // it to come back with a fresh value.
    bool toutFonctionne()
    {
        doublure->setMesure(1, -1.0);
        doublure->setOctetDemande(81, 0);
        doublure->setOctetDemande(80, 1);
        valeur += 1.0;
        const QString attendu = QStringLiteral("%1|%1|1|0|fd00::1\n|1").arg(valeur);
        const bool ok = attendre([&] { return etat() == attendu; });
        if (!ok)
            qWarning().noquote() << "expected" << attendu << "got" << etat();
        return ok;
    }

private slots:
    void init()
    {
        connect(&daemon, &QProcess::readyReadStandardError, this, &TestPannesProcessus::lire,
                Qt::UniqueConnection);
        bac = std::make_unique<BacASable>();
        QVERIFY(bac->estValide());
        bac->activer(0); // the double's segments go where the daemon looks
        doublure = std::make_unique<DoublureApplication>();
        QVERIFY(DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"),
                                                       {"RJ45", "RADIO", "RADIO Contact"}));
        intervalleTrames = 500;
        valeur = 21.5;
    }

    // The daemon first, so that the double is the last one attached and its
    // segments go with it.
    void cleanup()
    {
        daemon.terminate(); // it has no handler: the signal ends it
        daemon.waitForFinished();
        doublure.reset();
        // A daemon that held a segment past the double's detach left it
        // behind: the probe, its last user now, removes it.
        const QStringList cles = DoublureApplication::cles();
        for (const QString &cle : cles)
            existe(cle);
        bac.reset();
    }

    void zoneAbsenteAuDemarrage_data()
    {
        QTest::addColumn<QString>("zone");
        QTest::addColumn<QStringList>("attendus"); // while it is missing
        QTest::addColumn<QStringList>("interdits");
        const QString impossible =
            "recuperer_mesures : Impossible d'ouvrir QSharedMemory Config_Voies_iTessalin";
        const QString mesure = "recuperer_mesures : mesure_memoire->Mesure[1] = ";
        const QString lecture = "Lecture de l'adresse du BR...";
        // Frames still reach the channels; the save waits for a table to copy.
        QTest::newRow("Zone_HF") << "Zone_HF"
                                 << QStringList{ERREUR_ZONE_HF,
                                                "recuperer_mesures : Demande d'enregistrement ...",
                                                mesure + "21.5"}
                                 << QStringList{"recuperer_mesures : free(lmr)"};
        // No heartbeat and no address reading; the rest of the cycle runs.
        QTest::newRow("Demande_enreg")
            << "Demande_enreg"
            << QStringList{"recuperer_mesures : après zone_enregistrement.attach()",
                           mesure + "21.5"}
            << QStringList{"recuperer_mesures : zone_enregistrement.data()", lecture};
        // Either configuration zone: the same words, no registry, no values.
        QTest::newRow("Config_Voies_iTessalin")
            << "Config_Voies_iTessalin"
            << QStringList{impossible,
                           "verifierSiBesoinRepairBr : nb voies configurées en RADIO = 0"}
            << QStringList{"recuperer_mesures : zone_voies.data()", lecture,
                           "recuperer_mesures : zone_mesure.attach()"};
        QTest::newRow("Config_iTessalin")
            << "Config_iTessalin"
            << QStringList{impossible,
                           "verifierSiBesoinRepairBr : nb voies configurées en RADIO = 2"}
            << QStringList{"recuperer_mesures : zone_voies.data()", lecture,
                           "recuperer_mesures : zone_mesure.attach()"};
        QTest::newRow("Etat_iTessalin")
            << "Etat_iTessalin" << QStringList{"recuperer_mesures : après zone_mesure.attach()"}
            << QStringList{"recuperer_mesures : zone_mesure.data()", mesure};
    }

    void zoneAbsenteAuDemarrage()
    {
        QFETCH(QString, zone);
        QFETCH(QStringList, attendus);
        QFETCH(QStringList, interdits);
        QVERIFY(preparer(zone));
        doublure->setOctetDemande(80, 1);
        demarrer({"-periode", "1", "-log"});
        QVERIFY(cyclesEnPlus(3));
        for (const QString &texte : qAsConst(attendus))
            QVERIFY2(compter(texte) > 0, qPrintable(texte));
        for (const QString &texte : qAsConst(interdits))
            QVERIFY2(compter(texte) == 0, qPrintable(texte));
        QVERIFY(!existe(zone)); // never made by the daemon

        QVERIFY(preparer()); // the main application comes up late
        QVERIFY(toutFonctionne());
        QVERIFY(cyclesEnPlus(1));
        QVERIFY(compter("fin recuperer_mesures") >= cycles() - 1); // no cycle cut short
        QCOMPARE(daemon.state(), QProcess::Running);
    }

    // The main application restarts: its segments go with its detach, since
    // the daemon holds each one only for a cycle or a frame, and new empty
    // ones come in their place.
    void redemarrageApplicationPrincipale()
    {
        QVERIFY(preparer());
        demarrer({"-periode", "1", "-log"});
        QVERIFY(toutFonctionne());

        doublure->detruireZone("Zone_HF");
        doublure->detruireZone("Etat_iTessalin");
        QVERIFY(attendre([] { return !existe("Zone_HF") && !existe("Etat_iTessalin"); }));
        const int erreurs = compter(ERREUR_ZONE_HF);
        QVERIFY(attendre([&] { return compter(ERREUR_ZONE_HF) > erreurs; }));
        QVERIFY(cyclesEnPlus(2));
        QVERIFY(!existe("Zone_HF") && !existe("Etat_iTessalin")); // never made by the daemon

        QVERIFY(doublure->creerZone("Zone_HF") && doublure->creerZone("Etat_iTessalin"));
        QVERIFY(toutFonctionne());
        QCOMPARE(slotDe(doublure->octetsZoneHF(), MODULE_A), 0); // a fresh table
        QCOMPARE(daemon.state(), QProcess::Running);
    }

    void adresseBRPublieeQuandLeFichierArrive()
    {
        QVERIFY(preparer());
        QVERIFY(QFile::remove(bac->chemin(ADRESSE_BR)));
        doublure->setAdresseBR("fd00::9\n"); // left by an earlier run
        demarrer({"-periode", "1", "-log"});
        QVERIFY(cyclesEnPlus(3));
        // Looked for in every cycle; the stale address is cleared once.
        QVERIFY(compter("Lecture de l'adresse du BR...") >= 3);
        QVERIFY(compter("Adresse du BR lu : ") >= 3);
        QCOMPARE(doublure->adresseBR(), QByteArray());
        QCOMPARE(doublure->octetDemande(0), uchar(1));
        doublure->setOctetDemande(0, 0);
        QVERIFY(cyclesEnPlus(2));
        QCOMPARE(doublure->octetDemande(0), uchar(0));

        QVERIFY(ecrireFichier(ADRESSE_BR, "fd00::1\n"));
        QVERIFY(attendre([&] { return doublure->adresseBR() == "fd00::1\n"; }));
        QCOMPARE(doublure->octetDemande(0), uchar(1));
        QVERIFY(attendre([&] { return compter("Adresse du BR lu : fd00::1") == 1; }));

        // Read once per process: a later change of the file is not seen.
        const int lectures = compter("Lecture de l'adresse du BR...");
        QVERIFY(ecrireFichier(ADRESSE_BR, "fd00::2\n"));
        QVERIFY(cyclesEnPlus(2));
        QCOMPARE(compter("Lecture de l'adresse du BR..."), lectures);
        QCOMPARE(doublure->adresseBR(), QByteArray("fd00::1\n"));
        QCOMPARE(daemon.state(), QProcess::Running);
    }

    void scriptsEnPanne_data()
    {
        QTest::addColumn<QString>("corps"); // null: the scripts are missing
        QTest::addColumn<QStringList>("appels");
        const QStringList tous = {"tunslip6 stop", "tunslip6 start", "repair_br.sh",
                                  "reset_br.sh",   "tunslip6 stop",  "tunslip6 start"};
        QTest::newRow("absents") << QString() << QStringList();
        QTest::newRow("echec") << "exit 1" << tous;
        QTest::newRow("lents") << "sleep 5" << tous;
    }

    // Tunnel restart at start, repair, reset, tunnel restart after silence:
    // each action is logged and taken whatever its script does. The silences
    // take minutes, so the daemon's clock runs 200 times faster.
    void scriptsEnPanne()
    {
        QFETCH(QString, corps);
        QFETCH(QStringList, appels);
        const QString faketime = bibliothequeFaketime();
        if (faketime.isEmpty())
            QSKIP("libfaketime is not installed");
        QVERIFY(preparer());
        for (const QString &script : SCRIPTS) {
            if (corps.isNull())
                QVERIFY(QFile::remove(bac->chemin(script)));
            else
                bac->ecrireScript(script, corps);
        }
        intervalleTrames = 150; // 30 s of the daemon's time: well within its 300 s
        demarrer({}, faketime); // no "-log": only the lines always written

        // Module B speaks once, then stays silent: repaired after 360 s, reset after 660 s.
        QVERIFY(attendre([&] {
            trame(MODULE_B);
            return slotDe(doublure->octetsZoneHF(), MODULE_B) >= 0;
        }));
        QVERIFY(attendre([&] { return compter("RESET BR : Modules concernés : ") > 0; }));
        // Then the whole network: the tunnel is restarted after 300 s.
        intervalleTrames = 0;
        QVERIFY(attendre([&] { return compter("restartTunslip6()") == 2; }));

        const QString actions = brutes.filter(LIGNE_SERVEUR).join('\n');
        const QRegularExpression attendues(QRegularExpression::anchoredPattern(
            QStringList{"restartTunslip6\\(\\)",
                        "REPAIR BR : Modules concernés : 00000012 \\(\\d+ s\\) \\(>360s\\)",
                        "RESET BR : Modules concernés : 00000012 \\(\\d+ s\\) \\(>660s\\)",
                        "RESTART TUNSLIP6 : Dernière trame reçu il y a \\d+s \\(>300s\\)",
                        "restartTunslip6\\(\\)"}
                .replaceInStrings(QRegularExpression("^"), ENTETE_SERVEUR)
                .join('\n')));
        QVERIFY2(attendues.match(actions).hasMatch(), qPrintable(actions));
        // The last restart's "start" may still be on its way.
        QVERIFY(attendre([&] { return bac->appels().size() >= appels.size(); }));
        QCOMPARE(bac->appels(), appels);

        intervalleTrames = 150;
        QVERIFY(toutFonctionne());
        QCOMPARE(daemon.state(), QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(TestPannesProcessus)
#include "tst_pannes_processus.moc"
