#include "app/acquisitionradio.h"
#include "bacasable.h"
#include "capturelog.h"
#include "commun/horloge.h"
#include "log/logquintaris.h"

#include <QtTest>

// The two console line styles, the log signal and the val0 file that the
// appliance's people read.
class TestJournal : public QObject
{
    Q_OBJECT
    BacASable bac;

private slots:
    void initTestCase() { bac.activer(); }
    void init() { Horloge::figer(QDateTime(QDate(2027, 3, 5), QTime(10, 0))); }
    void cleanup() { Horloge::liberer(); }

    void ligneDateeSansHeure_data()
    {
        QTest::addColumn<QDateTime>("quand");
        QTest::addColumn<QString>("texte");
        QTest::addColumn<QString>("attendu");
        QTest::newRow("jour et mois sur deux chiffres")
            << QDateTime(QDate(2027, 3, 5), QTime(23, 59, 59)) << "x"
            << "05/03/2027 x";
        QTest::newRow("texte accentue garde")
            << QDateTime(QDate(2026, 11, 15), QTime(0, 0)) << "début"
            << "15/11/2026 début";
        QTest::newRow("texte vide") << QDateTime(QDate(2026, 1, 1), QTime(12, 0)) << ""
                                    << "01/01/2026 ";
    }
    void ligneDateeSansHeure()
    {
        QFETCH(QDateTime, quand);
        QFETCH(QString, texte);
        Horloge::figer(quand);
        const LogQuintaris::LigneLog ligne(texte);
        QCOMPARE(ligne.dateHeure, quand);
        QTEST(ligne.toString(), "attendu");
    }

    // Dated to the second; without -log only the forced lines are written.
    void ligneServeur()
    {
        QServeurUdp serveur;
        Horloge::figer(QDateTime(QDate(2027, 3, 5), QTime(9, 8, 7))); // its tunnel restart slept
        CaptureLog capture;
        serveur.ecrireLog("ordinaire");
        serveur.ecrireLog("ordinaire aussi", false);
        serveur.ecrireLog("bind() error : 98 : Address already in use", true);
        serveur.setLog();
        serveur.ecrireLog("Trame reçue");
        const QString entete = "05/03/2027 09:08:07 (serveur_udp) ";
        QCOMPARE(capture.lignes(),
                 QStringList({entete + "bind() error : 98 : Address already in use",
                              entete + "Trame reçue"}));
    }

    // The signal always; the console once switched on (twice: each line twice,
    // as the appliance always did); the val0 file with no end of line.
    void journalDuService()
    {
        AcquisitionRadio service;
        init(); // the tunnel restart's pause moved the frozen clock
        QSignalSpy signal(&service, &LogQuintaris::log);
        CaptureLog capture;
        service.ecrireLog("avant", false);
        QCOMPARE(signal.count(), 1);
        QCOMPARE(signal.at(0).at(0).value<LogQuintaris::LigneLog>().texte, QString("avant"));
        QVERIFY(capture.lignes().isEmpty());
        service.setLog();
        service.ecrireLog("après", false);
        service.setLog();
        service.ecrireLog("double", false);
        QCOMPARE(capture.lignes(),
                 QStringList({"05/03/2027 après", "05/03/2027 double", "05/03/2027 double"}));

        const QString voie = "Voie %1 n'a pas de QConnexionRJ45 développé";
        const QString date = "Fri Mar 5 10:00:0%1 2027 ";
        service.ecrireLog(voie.arg(3), true);
        Horloge::avancer(1);
        service.ecrireLog(voie.arg(4), true);
        QFile fichier(bac.chemin("/var/log/aradio_val0.txt"));
        QVERIFY(fichier.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(fichier.readAll()),
                 date.arg(0) + voie.arg(3) + date.arg(1) + voie.arg(4));
    }
};

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
