// The daemon seen from outside while the main application's segments, the
// border-router address file or the init and border-router scripts fail it.

#include "aide_pannes.h"
#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

namespace {
const QByteArray MODULE_A = "00000011"; // channel 1; channel 2's, 00000012, speaks once
const QString ADRESSE_BR = QStringLiteral("/root/br_itessalin.txt");

// A Qt program attaching by name, as the main application would: it waits on
// the name's semaphore, so a semaphore left at 0 shows as a wait that never ends.
bool qtPeutAttacher(const QString &cle)
{
    auto issue = std::make_shared<std::promise<bool>>();
    std::future<bool> resultat = issue->get_future();
    std::thread([cle, issue] {
        QSharedMemory zone(cle);
        issue->set_value(zone.attach(QSharedMemory::ReadOnly));
    }).detach(); // left behind if it hangs: the process ends all the same
    return resultat.wait_for(std::chrono::seconds(10)) == std::future_status::ready &&
           resultat.get();
}
} // namespace

class TestPannesProcessus : public QObject
{
    Q_OBJECT

    std::unique_ptr<BacASable> bac;
    std::unique_ptr<DoublureApplication> doublure;
    DaemonSousTest daemon;
    double valeur = 21.5; // what module A sends
    QTimer emetteur;      // module A's frames, while the test waits
    const QMetaObject::Connection envoi =
        connect(&emetteur, &QTimer::timeout, this, [this] { daemon.envoyer(MODULE_A, valeur); });

    // What is not there yet made, but the absent ones; the radio channels written.
    bool preparer(const QStringList &absents = {}, const QByteArray &adresse = "fd00::1\n")
    {
        const QStringList cles = DoublureApplication::cles();
        for (const QString &cle : cles) {
            if (!absents.contains(cle) && !doublure->zonePresente(cle) && !doublure->creerZone(cle))
                return false;
        }
        doublure->ecrireVoie(1, 1, MODULE_A, 0, 0.0);
        doublure->ecrireVoie(2, 1, "00000012", 0, 0.0);
        QFile fichier(bac->chemin(ADRESSE_BR));
        return absents.contains(ADRESSE_BR) ||
               (fichier.open(QIODevice::WriteOnly) && fichier.write(adresse) == adresse.size());
    }

    // Channel 1's value, module A's record, heartbeat, save served, address
    // published and flagged: cleared or asked for, then waited for.
    bool toutFonctionne()
    {
        doublure->setMesure(1, -1.0);
        doublure->setOctetDemande(81, 0);
        doublure->setOctetDemande(80, 1);
        const QByteArray attendu = QByteArray::number(valeur += 1.0);
        return daemon.attendre([&] {
            const QByteArray z = doublure->octetsZoneHF();
            return doublure->mesure(1) == valeur &&
                   texte(z, slotDe(z, MODULE_A), VALEUR) == attendu &&
                   doublure->octetDemande(81) == 1 && doublure->octetDemande(80) == 0 &&
                   doublure->adresseBR() == "fd00::1\n" && doublure->octetDemande(0) == 1;
        });
    }

private slots:
    void init()
    {
        bac = std::make_unique<BacASable>();
        QVERIFY(bac->estValide());
        bac->activer(0); // the double's segments go where the daemon looks
        doublure = std::make_unique<DoublureApplication>();
        QVERIFY(DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"),
                                                       {"RJ45", "RADIO", "RADIO Contact"}));
        emetteur.start(500);
        valeur = 21.5;
    }
    // The daemon first, so that the double's detach removes its segments.
    void cleanup()
    {
        daemon.arreter();
        doublure.reset();
        bac.reset();
    }

    void absents_data()
    {
        QTest::addColumn<QStringList>("absents"); // segments, or the address file
        QTest::addColumn<QStringList>("attendus");
        QTest::addColumn<QStringList>("interdits");
        const QString impossible = "Impossible d'ouvrir QSharedMemory Config_Voies_iTessalin";
        const QString erreurHF = "Erreur zone.attach() sur fonctions_bases::setModule 00000011 : ";
        const QString demande = "recuperer_mesures : Demande d'enregistrement ...";
        const QString lecture = "Lecture de l'adresse du BR...";
        const QStringList sansRegistre{"zone_voies.data()", lecture, "zone_mesure.attach()"};
        // Frames still reach the channels; the save waits for a table to copy.
        QTest::newRow("Zone_HF") << QStringList{"Zone_HF"}
                                 << QStringList{erreurHF, demande, "Mesure[1] = 21.5"}
                                 << QStringList{"free(lmr)"};
        // No heartbeat and no address reading; the rest of the cycle runs.
        QTest::newRow("Demande_enreg")
            << QStringList{"Demande_enreg"} << QStringList{"Mesure[1] = 21.5"}
            << QStringList{"zone_enregistrement.data()", lecture};
        // Either configuration segment: the same words, no registry, no values.
        QTest::newRow("Config_Voies_iTessalin")
            << QStringList{"Config_Voies_iTessalin"}
            << QStringList{impossible, "nb voies configurées en RADIO = 0"} << sansRegistre;
        QTest::newRow("Config_iTessalin")
            << QStringList{"Config_iTessalin"}
            << QStringList{impossible, "nb voies configurées en RADIO = 2"} << sansRegistre;
        // Removed while the daemon runs, which holds them only for a cycle or a frame.
        QTest::newRow("redemarrage")
            << QStringList{"Zone_HF", "Etat_iTessalin"} << QStringList{erreurHF, demande}
            << QStringList{"free(lmr)", "zone_mesure.data()"};
        // Looked for at every cycle; the address left by an earlier run is cleared.
        QTest::newRow("adresse BR")
            << QStringList{ADRESSE_BR} << QStringList{lecture, "Adresse du BR lu : "}
            << QStringList{"Adresse du BR lu : fd00"};
    }
    void absents()
    {
        QFETCH(QStringList, absents);
        const bool enMarche = QTest::currentDataTag() == QByteArray("redemarrage");
        QFETCH(QStringList, attendus);
        QFETCH(QStringList, interdits);
        const auto aucun = [&] {
            return std::none_of(absents.cbegin(), absents.cend(), DoublureApplication::zoneExiste);
        };
        QVERIFY(preparer(enMarche ? QStringList() : absents));
        doublure->setAdresseBR("fd00::9\n");
        daemon.demarrer(*bac, {"-periode", "1", "-log"});
        if (enMarche) {
            QVERIFY(toutFonctionne());
            for (const QString &cle : qAsConst(absents))
                doublure->detruireZone(cle);
            QVERIFY(daemon.attendre(aucun));
        }
        const int debut = daemon.messages().size();
        doublure->setOctetDemande(80, 1);
        QVERIFY(daemon.cycles(2));
        for (const QString &texte : qAsConst(attendus))
            QVERIFY2(daemon.compter(texte, debut) > 0, qPrintable(texte));
        for (const QString &texte : qAsConst(interdits))
            QVERIFY2(daemon.compter(texte, debut) == 0, qPrintable(texte));
        QVERIFY(aucun()); // never made by the daemon
        if (absents.contains(ADRESSE_BR))
            QCOMPARE(doublure->adresseBR(), QByteArray());

        QVERIFY(preparer()); // the main application comes up, the address file arrives
        QVERIFY(toutFonctionne());
        QVERIFY(preparer({}, "fd00::2\n")); // read once per process: not seen
        QVERIFY(daemon.cycles(2));
        QCOMPARE(doublure->adresseBR(), QByteArray("fd00::1\n"));
        QVERIFY(daemon.compter("fin recuperer_mesures") >=
                daemon.compter("début recuperer_mesures") - 1);
        QVERIFY(daemon.enMarche());
    }

    void chargeDesDeuxFils_data()
    {
        QTest::addColumn<int>("maintien");
        QTest::newRow("System V") << int(DoublureApplication::Maintien::SystemeV);
        QTest::newRow("Qt") << int(DoublureApplication::Maintien::Qt);
    }
    // A minute of frames as fast as the disk takes them, 64 radio channels on
    // 100 modules and a cycle every second: both threads attach "Zone_HF"
    // hundreds of times a second. The service must come out of it working,
    // and leave the main application able to attach every segment.
    void chargeDesDeuxFils()
    {
        QFETCH(int, maintien);
        emetteur.stop();
        // On tmpfs, frames are stored as fast as the daemon can work, not as
        // slowly as a disk shared with other jobs lets it.
        doublure.reset();
        const QByteArray tmpdir = qgetenv("TMPDIR");
        qputenv("TMPDIR", "/dev/shm");
        bac = std::make_unique<BacASable>();
        qputenv("TMPDIR", tmpdir);
        QVERIFY(bac->estValide());
        bac->activer(0);
        QVERIFY(DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"),
                                                       {"RJ45", "RADIO", "RADIO Contact"}));
        doublure = std::make_unique<DoublureApplication>(DoublureApplication::Maintien(maintien));
        QVERIFY(preparer());
        const auto adresse = [](int m) { return QByteArray::number(10000000 + m); };
        for (int v = 1; v <= 64; ++v)
            doublure->ecrireVoie(v, 1, adresse(v), 0, 0.0);
        daemon.demarrer(*bac, {"-periode", "1"});
        QVERIFY(daemon.attendre([&] {
            daemon.envoyer(adresse(0), 1);
            return doublure->octetDemande(81) == 1 &&
                   slotDe(doublure->octetsZoneHF(), adresse(0)) >= 0;
        }));

        QElapsedTimer minute;
        minute.start();
        for (int n = 0; minute.elapsed() < 60000; ++n) {
            daemon.envoyer(adresse(n % 100), n % 1000);
            if (n % 16 == 15)
                QTest::qWait(10); // some 1,000 a second: more than the disk takes
        }
        doublure->setOctetDemande(81, 0);
        QVERIFY2(daemon.attendre([&] { return doublure->octetDemande(81) == 1; }),
                 "no heartbeat after the load");
        const QString base = bac->chemin("/var/base/hf.db");
        const QString sql = "select count(*) from mesures_hf where module = '" +
                            QString::fromLatin1(adresse(100)) + "'";
        QVERIFY2(daemon.attendre([&] {
            daemon.envoyer(adresse(100), 7);
            return lignes(base, sql).toInt() > 0;
        }),
                 "no frame stored after the load");
        for (const QString &cle : DoublureApplication::cles())
            QVERIFY2(qtPeutAttacher(cle), qPrintable(cle));
        QVERIFY(daemon.enMarche());
    }

    void zonesPlusCourtes_data()
    {
        QTest::addColumn<QString>("cle");
        QTest::addColumn<int>("taille");
        // Channels 0 to 9: channel 10's record, radio, lies just past the end.
        QTest::newRow("Config_Voies_iTessalin") << "Config_Voies_iTessalin" << 10 * 464;
        QTest::newRow("Etat_iTessalin") << "Etat_iTessalin" << 8 + 8 * 11; // Mesure[11] past it
        QTest::newRow("Demande_enreg") << "Demande_enreg" << 81;           // the heartbeat past it
        QTest::newRow("Config_iTessalin") << "Config_iTessalin" << 1124;   // the address past it
        QTest::newRow("Zone_HF") << "Zone_HF" << 50 * 216; // 50 slots for 60 modules
    }
    // A main application whose record is shorter than documented: the daemon
    // neither reads nor writes past the segment's end (the rest of its last
    // page is mapped and shared all the same, so what it did there shows),
    // and what lies beyond counts as absent.
    void zonesPlusCourtes()
    {
        QFETCH(QString, cle);
        QFETCH(int, taille);
        doublure = std::make_unique<DoublureApplication>(DoublureApplication::Maintien::SystemeV);
        QVERIFY(preparer());
        QVERIFY(doublure->creerZone(cle, nullptr, taille));
        uchar *zone = doublure->donnees(cle);
        std::memset(zone + taille, 0xA5, size_t(doublure->tailleMappee(cle) - taille));
        if (cle == "Config_Voies_iTessalin") {
            std::memset(zone + taille, 0, 464);
            zone[taille + 32] = 1; // type RADIO
            std::memcpy(zone + taille + 344, MODULE_A.constData(), size_t(MODULE_A.size()));
        }
        const QByteArray reste(reinterpret_cast<const char *>(zone) + taille,
                               doublure->tailleMappee(cle) - taille);
        QVERIFY(preparer());
        doublure->ecrireVoie(11, 1, MODULE_A, 0, 0.0);
        doublure->setMesure(10, -1.0);
        for (int m = 0; m < 60; ++m)
            daemon.envoyer(QByteArray::number(20000000 + m), m);

        daemon.demarrer(*bac, {"-periode", "1", "-log"});
        QVERIFY(daemon.attendre([&] { return doublure->mesure(1) == valeur; }));
        for (int m = 0; m < 60; ++m)
            daemon.envoyer(QByteArray::number(20000000 + m), m);
        QVERIFY(daemon.cycles(3));
        QCOMPARE(QByteArray(reinterpret_cast<const char *>(zone) + taille, reste.size()), reste);
        QCOMPARE(doublure->mesure(10), -1.0);
        QVERIFY(daemon.enMarche());
    }

    // A main application caught between making a segment and attaching it:
    // the daemon takes it as not there yet, and above all does not remove it.
    void zoneEnCoursDeCreation()
    {
        doublure = std::make_unique<DoublureApplication>(DoublureApplication::Maintien::SystemeV);
        QVERIFY(preparer({"Zone_HF"}));
        QVERIFY(doublure->creerZone("Zone_HF", nullptr, 0, false));
        daemon.demarrer(*bac, {"-periode", "1", "-log"});
        QVERIFY(daemon.attendre([&] {
            return daemon.compter("Erreur zone.attach() sur fonctions_bases::setModule ") > 0;
        }));
        QVERIFY(daemon.cycles(2));
        QVERIFY(DoublureApplication::zoneExiste("Zone_HF"));
        QVERIFY(doublure->attacherZone("Zone_HF"));
        QVERIFY(toutFonctionne());
    }

    void scriptsEnPanne_data()
    {
        QTest::addColumn<QString>("corps"); // null: the scripts are missing
        QTest::addColumn<QStringList>("appels");
        QTest::newRow("absents") << QString() << QStringList();
        const QStringList tous{"tunslip6 stop", "tunslip6 start", "repair_br.sh",
                               "reset_br.sh",   "tunslip6 stop",  "tunslip6 start"};
        QTest::newRow("echec") << "exit 1" << tous;
        // 5 s of the daemon's clock, which the script shares.
        QTest::newRow("lents") << "sleep 5" << tous;
    }
    // Tunnel restart at start, repair and reset of a silent module, tunnel restart
    // after the network's silence: each logged and taken whatever its script does.
    void scriptsEnPanne()
    {
        QFETCH(QString, corps);
        QFETCH(QStringList, appels);
        QProcessEnvironment faketime;
        if (!prechargerFaketime(faketime))
            QSKIP("libfaketime is not installed");
        faketime.insert("FAKETIME", "+0 x200"); // minutes of silence in seconds
        QVERIFY(preparer());
        // Each script notes what it inherited: the daemon's socket and files
        // must not reach it, nor the tunnel program it may leave running.
        const QString descripteurs = bac->chemin("/descripteurs");
        for (const char *script :
             {"/etc/init.d/tunslip6", "/etc/scripts/reset_br.sh", "/etc/scripts/repair_br.sh"}) {
            if (corps.isNull())
                QVERIFY(QFile::remove(bac->chemin(script)));
            else
                bac->ecrireScript(script, "ls -l /proc/$$/fd >> '" + descripteurs + "'\n" + corps);
        }
        emetteur.start(150);                 // 30 s of the daemon's time: well within its 300 s
        daemon.demarrer(*bac, {}, faketime); // no "-log": only the lines always written

        QVERIFY(daemon.attendre([&] {
            daemon.envoyer("00000012", valeur);
            return slotDe(doublure->octetsZoneHF(), "00000012") >= 0;
        }));
        QVERIFY(daemon.attendre([&] { return daemon.compter("RESET BR : ") > 0; }));
        emetteur.stop(); // now the whole network falls silent
        QVERIFY(daemon.attendre([&] { return daemon.compter("restartTunslip6()") == 2; }));

        const QString actions =
            daemon.messages().filter(QRegularExpression("^(restart|RE)")).join('\n');
        const QRegularExpression attendues(QRegularExpression::anchoredPattern(
            "restartTunslip6\\(\\)\n"
            "REPAIR BR : Modules concernés : 00000012 \\(\\d+ s\\) \\(>360s\\)\n"
            "RESET BR : Modules concernés : 00000012 \\(\\d+ s\\) \\(>660s\\)\n"
            "RESTART TUNSLIP6 : Dernière trame reçu il y a \\d+s \\(>300s\\)\n"
            "restartTunslip6\\(\\)"));
        QVERIFY2(attendues.match(actions).hasMatch(), qPrintable(actions));
        // The last restart's "start" may still be on its way.
        QVERIFY(daemon.attendre([&] { return bac->appels().size() >= appels.size(); }));
        QCOMPARE(bac->appels(), appels);
        QFile herites(descripteurs);
        QCOMPARE(herites.open(QIODevice::ReadOnly), !corps.isNull());
        const QString vus = QString::fromUtf8(herites.readAll());
        QVERIFY2(!vus.contains("socket:") && !vus.contains(bac->chemin("/var/")), qPrintable(vus));

        emetteur.start(150);
        QVERIFY(toutFonctionne());
        QVERIFY(daemon.enMarche());
    }
};

QTEST_GUILESS_MAIN(TestPannesProcessus)
#include "tst_pannes_processus.moc"
