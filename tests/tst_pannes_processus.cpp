// The daemon seen from outside while the main application's segments, the
// border-router address file or the init and border-router scripts fail it.

#include "aide_pannes.h"
#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include <algorithm>
#include <memory>

namespace {
const QByteArray MODULE_A = "00000011"; // channel 1; channel 2's, 00000012, speaks once
const QString ADRESSE_BR = QStringLiteral("/root/br_itessalin.txt");

// The probe's own detach removes the segment when nobody else holds it.
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
        const auto aucun = [&] { return std::none_of(absents.cbegin(), absents.cend(), existe); };
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
        for (const char *script :
             {"/etc/init.d/tunslip6", "/etc/scripts/reset_br.sh", "/etc/scripts/repair_br.sh"}) {
            if (corps.isNull())
                QVERIFY(QFile::remove(bac->chemin(script)));
            else
                bac->ecrireScript(script, corps);
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

        emetteur.start(150);
        QVERIFY(toutFonctionne());
        QVERIFY(daemon.enMarche());
    }
};

QTEST_GUILESS_MAIN(TestPannesProcessus)
#include "tst_pannes_processus.moc"
