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
private slots:
    void init();
    void cleanup();
    void ligneDateeSansHeure_data();
    void ligneDateeSansHeure();
    void ligneServeurDateeALaSeconde();
    void serveurMuetSansLogSaufForce();
    void consoleSeulementApresLog();
    void fichierVal0SansFinDeLigne();

private:
    QDateTime instant(int jour, int h, int m, int s) const
    {
        return QDateTime(QDate(2027, 3, jour), QTime(h, m, s));
    }
};

void TestJournal::init()
{
    Horloge::figer(instant(5, 10, 0, 0));
}

void TestJournal::cleanup()
{
    Horloge::liberer();
}

void TestJournal::ligneDateeSansHeure_data()
{
    QTest::addColumn<QDateTime>("quand");
    QTest::addColumn<QString>("texte");
    QTest::addColumn<QString>("attendu");
    QTest::newRow("jour et mois sur deux chiffres")
        << QDateTime(QDate(2027, 3, 5), QTime(23, 59, 59)) << "x"
        << "05/03/2027 x";
    QTest::newRow("texte accentue garde")
        << QDateTime(QDate(2026, 11, 15), QTime(0, 0)) << "début recuperer_mesures"
        << "15/11/2026 début recuperer_mesures";
    QTest::newRow("texte vide") << QDateTime(QDate(2026, 1, 1), QTime(12, 0)) << ""
                                << "01/01/2026 ";
}

void TestJournal::ligneDateeSansHeure()
{
    QFETCH(QDateTime, quand);
    QFETCH(QString, texte);
    QFETCH(QString, attendu);
    Horloge::figer(quand);
    const LogQuintaris::LigneLog ligne(texte);
    QCOMPARE(ligne.dateHeure, quand);
    QCOMPARE(ligne.toString(), attendu);
}

void TestJournal::ligneServeurDateeALaSeconde()
{
    BacASable bac;
    bac.activer();
    QServeurUdp serveur;
    serveur.setLog();
    Horloge::figer(instant(5, 9, 8, 7));
    CaptureLog capture;
    serveur.ecrireLog("Trame reçue");
    QCOMPARE(capture.lignes(), QStringList{"05/03/2027 09:08:07 (serveur_udp) Trame reçue"});
}

void TestJournal::serveurMuetSansLogSaufForce()
{
    BacASable bac;
    bac.activer();
    QServeurUdp serveur;
    init(); // the tunnel restart's pause moved the frozen clock
    CaptureLog capture;
    serveur.ecrireLog("ordinaire");
    serveur.ecrireLog("ordinaire aussi", false);
    serveur.ecrireLog("bind() error : 98 : Address already in use", true);
    QCOMPARE(capture.lignes(),
             QStringList{
                 "05/03/2027 10:00:00 (serveur_udp) bind() error : 98 : Address already in use"});
}

void TestJournal::consoleSeulementApresLog()
{
    BacASable bac;
    bac.activer();
    AcquisitionRadio service;
    init();
    QSignalSpy signal(&service, &LogQuintaris::log);
    CaptureLog capture;

    service.ecrireLog("avant", false);
    QCOMPARE(signal.count(), 1);
    QCOMPARE(signal.at(0).at(0).value<LogQuintaris::LigneLog>().texte, QString("avant"));
    QVERIFY(capture.lignes().isEmpty());

    service.setLog();
    service.ecrireLog("après", false);
    QCOMPARE(capture.lignes(), QStringList{"05/03/2027 après"});

    // Switching on twice connects the writer twice, as the appliance always did.
    capture.vider();
    service.setLog();
    service.ecrireLog("double", false);
    QCOMPARE(capture.lignes(), (QStringList{"05/03/2027 double", "05/03/2027 double"}));
}

void TestJournal::fichierVal0SansFinDeLigne()
{
    BacASable bac;
    bac.activer();
    AcquisitionRadio service;
    init();
    service.ecrireLog("Voie 3 n'a pas de QConnexionRJ45 développé", true);
    Horloge::avancer(1);
    service.ecrireLog("Voie 4 n'a pas de QConnexionRJ45 développé", true);
    service.ecrireLog("trace seulement", false);

    QFile fichier(bac.chemin("/var/log/aradio_val0.txt"));
    QVERIFY(fichier.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(fichier.readAll()),
             QString("Fri Mar 5 10:00:00 2027 Voie 3 n'a pas de QConnexionRJ45 développé"
                     "Fri Mar 5 10:00:01 2027 Voie 4 n'a pas de QConnexionRJ45 développé"));
}

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
