// The daemon when the radio database is gone, read-only or locked, its port
// taken or its clock set back: it keeps cycling, says what failed, and takes
// up its work once the fault clears.

#include "aide_pannes.h"
#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include <cstdio>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

class TestPannesBaseProcessus : public QObject
{
    Q_OBJECT

    BacASable bac;
    DoublureApplication doublure;
    DaemonSousTest daemon;
    bool montagesPrives = false; // a mount namespace of our own, shared by the daemons
    const QByteArray varBase = QFile::encodeName(bac.chemin("/var/base"));

    QString base() const { return bac.chemin("/var/base/hf.db"); }
    int mesures(const QString &module) const
    {
        return lignes(base(), "select count(*) from mesures_hf where module = '" + module + "'")
            .toInt();
    }

    // A fresh module table and radio base, messages in English and UTF-8.
    void demarrer(QProcessEnvironment ajouts = {})
    {
        daemon.arreter();
        std::memset(doublure.donnees("Zone_HF"), 0, 21600);
        QFile::remove(base());
        ajouts.insert("LC_ALL", "C.UTF-8");
        daemon.demarrer(bac, {"-periode", "1", "-log"}, ajouts);
        QTRY_VERIFY_WITH_TIMEOUT(daemon.compter("début recuperer_mesures") > 0, 20000);
    }
    // Replaced in one step: the daemon reads the file at every look at the clock.
    static bool ecrireDecalage(const QString &chemin, const QByteArray &decalage)
    {
        QSaveFile fichier(chemin);
        return fichier.open(QIODevice::WriteOnly) && fichier.write(decalage + '\n') > 0 &&
               fichier.commit();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(bac.estValide());
        QVERIFY(DoublureApplication::creerBaseAppareil(bac.chemin("/var/base/itessalin.db"),
                                                       {"RJ45", "RADIO"}));
        // Mounts made from here on stay inside this process and its children.
        montagesPrives = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0 &&
                         ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        bac.activer(0); // the segments go to the sandbox's directory, as the daemon's
        QString raison;
        QVERIFY2(doublure.creerZones(&raison), qPrintable(raison));
    }
    void cleanup() // also after the last test
    {
        daemon.arreter();
        if (montagesPrives)
            ::umount2(varBase.constData(), MNT_DETACH); // the read-only view, if still there
        doublure.effacerVoie(1);
    }

    void baseEnPanne_data()
    {
        QTest::addColumn<QString>("erreur");           // what SQLite says, %1 the table
        QTest::addColumn<QStringList>("instructions"); // each must report it
        QTest::newRow("supprimee")
            << " : 1 : no such table: %1 Unable to execute statement"
            << QStringList{"select modules", "insertion modules", "suppression mesures_hf",
                           "suppression mesures_taux"};
        QTest::newRow("lecture seule")
            << " : 8 : attempt to write a readonly database Unable to fetch row"
            << QStringList{"insertion modules", "suppression mesures_hf",
                           "suppression mesures_taux"};
        // SQLite waits up to 5 s for a lock: readings are held back, at worst refused.
        QTest::newRow("verrouillee")
            << " : 5 : database is locked Unable to fetch row" << QStringList();
    }
    void baseEnPanne()
    {
        QFETCH(QString, erreur);
        QFETCH(QStringList, instructions);
        const QByteArray panne = QTest::currentDataTag();
        if (panne == "lecture seule" && !montagesPrives)
            QSKIP("needs root and a mount namespace of its own");
        const QString sqlite3 = QStandardPaths::findExecutable("sqlite3");
        if (panne == "verrouillee" && sqlite3.isEmpty())
            QSKIP("the sqlite3 program is not installed");
        demarrer();
        daemon.envoyer("900", 1);
        QTRY_COMPARE_WITH_TIMEOUT(mesures("900"), 1, 20000);

        const int debut = daemon.messages().size();
        QProcess verrou;
        const QString ecartee = base() + ".ecartee"; // put back as a backup would be
        if (panne == "supprimee") {
            QCOMPARE(std::rename(qPrintable(base()), qPrintable(ecartee)), 0);
        } else if (panne == "lecture seule") {
            const char *d = varBase.constData();
            QVERIFY(::mount(d, d, nullptr, MS_BIND, nullptr) == 0 &&
                    ::mount(nullptr, d, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0);
            QVERIFY2(!QFile(base()).open(QIODevice::ReadWrite), "root can still write the base");
        } else {
            verrou.start("sh", {"-c",
                                "{ echo 'BEGIN EXCLUSIVE;'; echo \".system touch '$2'\"; sleep 5; "
                                "echo 'COMMIT;'; } | \"$0\" \"$1\"",
                                sqlite3, base(), bac.chemin("/tenu")});
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(bac.chemin("/tenu")), 5000);
        }

        // Readings arriving meanwhile still reach the module table.
        for (int valeur = 1; valeur <= 5; ++valeur)
            daemon.envoyer("901", valeur);
        QTRY_COMPARE_WITH_TIMEOUT(
            texte(doublure.octetsZoneHF(), slotDe(doublure.octetsZoneHF(), "901"), VALEUR),
            QByteArray("5"), 20000);
        QVERIFY(daemon.cycles(2));

        if (panne == "supprimee") {
            QCOMPARE(std::rename(qPrintable(ecartee), qPrintable(base())), 0);
        } else if (panne == "lecture seule") {
            QCOMPARE(::umount2(varBase.constData(), MNT_DETACH), 0);
        } else {
            QVERIFY(verrou.state() == QProcess::NotRunning || verrou.waitForFinished(15000));
            QCOMPARE(verrou.exitCode(), 0);
        }

        const QStringList pendant = daemon.messages(debut);
        for (const QString &instruction : qAsConst(instructions)) {
            const QString message = "Erreur " + instruction +
                                    QString(erreur).replace("%1", instruction.section(' ', 1));
            QVERIFY2(pendant.contains(message), qPrintable(message));
        }
        // No reading is lost without a word: each one is stored or reported.
        QStringList echecs = pendant.filter(QRegularExpression("^Erreur insertion mesures_hf"));
        const int refusees = echecs.removeAll("Erreur insertion mesures_hf" +
                                              QString(erreur).replace("%1", "mesures_hf"));
        QCOMPARE(echecs, QStringList());
        QCOMPARE(mesures("901") + refusees, 5);
        if (panne != "verrouillee")
            QCOMPARE(refusees, 5);

        QCOMPARE(lignes(base(), "PRAGMA integrity_check"), QString("ok"));
        daemon.envoyer("902", 7);
        QTRY_COMPARE_WITH_TIMEOUT(mesures("902"), 1, 20000);
        QVERIFY(daemon.cycles(2));
        QVERIFY(daemon.enMarche());
    }

    void portTenuParUnAutreProgramme()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress(QHostAddress::LocalHostIPv6), BacASable::portLibre(),
                              QUdpSocket::DontShareAddress));
        QProcessEnvironment env;
        env.insert("ACQUISITIONRADIO_PORT", QString::number(occupant.localPort()));
        demarrer(env);
        // Tried at start and again by every cycle, each time in the same words.
        const QString erreur = "bind() error : 98 : Address already in use";
        QTRY_VERIFY_WITH_TIMEOUT(daemon.compter(erreur) >= 3, 20000);
        // Each attempt's descriptor is closed: a port held for hours must
        // not use up the process's descriptors.
        const QDir descripteurs(QStringLiteral("/proc/%1/fd").arg(daemon.processus.processId()));
        const int avant = descripteurs.entryList(QDir::NoDotAndDotDot | QDir::System).size();
        const int essais = daemon.compter(erreur);
        QTRY_VERIFY_WITH_TIMEOUT(daemon.compter(erreur) >= essais + 3, 20000);
        QCOMPARE(descripteurs.entryList(QDir::NoDotAndDotDot | QDir::System).size(), avant);

        occupant.close();
        const QString ouvert = "État du serveur UDP : En attente de réception de données (";
        QTRY_COMPARE_WITH_TIMEOUT(daemon.compter(ouvert), 1, 20000);
        daemon.envoyer("903", 4);
        QTRY_COMPARE_WITH_TIMEOUT(mesures("903"), 1, 20000);
        QVERIFY(daemon.cycles(2));
        QCOMPARE(daemon.compter(ouvert), 1); // opened once
    }

    void horlogeReculeeDUnJour()
    {
        QProcessEnvironment env;
        if (!prechargerFaketime(env))
            QSKIP("faketime is not installed");
        const QString decalage = bac.chemin("/decalage_horloge.txt");
        QVERIFY(ecrireDecalage(decalage, "+0"));
        env.insert("FAKETIME_TIMESTAMP_FILE", decalage);
        env.insert("FAKETIME_NO_CACHE", "1");
        // The timers run on the monotonic clock, which a change of the date leaves alone.
        env.insert("FAKETIME_DONT_FAKE_MONOTONIC", "1");
        doublure.ecrireVoie(1, 1, "00000011", 0, 0.0); // so that the border router is watched
        const int appelsAvant = bac.appels().size();   // the sandbox keeps every daemon's
        demarrer(env);
        for (int valeur = 1; valeur <= 3; ++valeur)
            daemon.envoyer("900", valeur);
        QTRY_COMPARE_WITH_TIMEOUT(mesures("900"), 3, 20000);
        QVERIFY(daemon.cycles(1));
        QCOMPARE(daemon.compter("début enregistrerTaux"), 1); // the first cycle's

        QVERIFY(ecrireDecalage(decalage, "-86400"));
        const int debut = daemon.messages().size();
        // Module 900's last frame is now a day ahead: an unsigned age of 2^32 - 86400 s.
        QTRY_COMPARE_WITH_TIMEOUT(
            daemon.compter("RESET BR : Modules concernés : 900 (42948", debut), 1, 20000);

        // Readings go on, dated a day earlier, and nothing of the day ahead is purged.
        for (int valeur = 4; valeur <= 5; ++valeur)
            daemon.envoyer("900", valeur);
        QTRY_COMPARE_WITH_TIMEOUT(mesures("900"), 5, 20000);
        QCOMPARE(lignes(base(), "select count(*) from mesures_hf where dateheure_mesure_hf < "
                                "(select max(dateheure_mesure_hf) from mesures_hf) - 80000"),
                 QString("2"));
        QVERIFY(daemon.cycles(3));
        QCOMPARE(mesures("900"), 5);
        // The hourly save's hour starts again; no tunnel restart, one reset only.
        QCOMPARE(daemon.compter("début enregistrerTaux"), 1);
        QCOMPARE(bac.appels().mid(appelsAvant),
                 QStringList({"tunslip6 stop", "tunslip6 start", "reset_br.sh"}));
        QVERIFY(daemon.enMarche());
    }
};

QTEST_GUILESS_MAIN(TestPannesBaseProcessus)
#include "tst_pannes_base_processus.moc"
