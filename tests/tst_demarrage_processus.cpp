#include "bacasable.h"
#include "doublureapplication.h"

#include <QtTest>

// The daemon as the appliance starts it: the start line, "-log" and the
// acquisition timer, seen from outside the process.
class TestDemarrageProcessus : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void ligneDeDemarrageSeule();
    void logEtPeriodeUneSeconde();

private:
    QStringList lancer(const QStringList &arguments, int millisecondes);
    BacASable bac;
};

void TestDemarrageProcessus::initTestCase()
{
    QVERIFY(bac.estValide());
    QVERIFY(DoublureApplication::creerBaseAppareil(bac.chemin("/var/base/itessalin.db"),
                                                   {"RJ45", "RADIO", "RADIO Contact"}));
}

// Runs the daemon for a while, then stops it; returns its standard error lines.
QStringList TestDemarrageProcessus::lancer(const QStringList &arguments, int millisecondes)
{
    QProcess daemon;
    daemon.setProcessEnvironment(bac.environnement(BacASable::portLibre()));
    daemon.start(CHEMIN_DAEMON, arguments);
    if (!daemon.waitForStarted())
        return {QStringLiteral("not started: ") + daemon.errorString()};
    QTest::qWait(millisecondes);
    daemon.terminate();
    daemon.waitForFinished();
    return QString::fromUtf8(daemon.readAllStandardError()).split('\n', Qt::SkipEmptyParts);
}

void TestDemarrageProcessus::ligneDeDemarrageSeule()
{
    // The tunnel restart of the server's construction is always logged; the
    // acquisition side prints its start line and nothing else. The first
    // cycle is 20 s away, so the window can leave a slow or emulated machine
    // time to start the process as well as the 2 s tunnel restart.
    const QStringList lignes = lancer({}, 5000);
    QCOMPARE(lignes.size(), 2);
    QVERIFY2(QRegularExpression(QStringLiteral("^\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d "
                                               "\\(serveur_udp\\) restartTunslip6\\(\\)$"))
                 .match(lignes.at(0))
                 .hasMatch(),
             qPrintable(lignes.at(0)));
    const QRegularExpression attendu(
        QStringLiteral("^\\d\\d/\\d\\d/\\d{4} D\uFFFDmarrage de AcquisitionRADIO$"));
    QVERIFY2(attendu.match(lignes.at(1)).hasMatch(), qPrintable(lignes.at(1)));
    QCOMPARE(lignes.at(1).left(10), QDate::currentDate().toString("dd/MM/yyyy"));
}

void TestDemarrageProcessus::logEtPeriodeUneSeconde()
{
    // The constructor restarts the tunnel (2 s) before the options are read.
    const QStringList lignes = lancer({"-periode", "1", "-log"}, 5200);
    const int ecriture = lignes.indexOf(QStringLiteral("Écriture de log"));
    const int demarrage = lignes.indexOf(QRegularExpression(
        QStringLiteral("^\\d\\d/\\d\\d/\\d{4} D\uFFFDmarrage de AcquisitionRADIO$")));
    QVERIFY2(ecriture >= 0, qPrintable(lignes.join('\n')));
    QVERIFY(demarrage > ecriture);
    const int cycles = lignes.filter(QRegularExpression(" début recuperer_mesures$")).size();
    QVERIFY2(cycles >= 2 && cycles <= 4, qPrintable(QString::number(cycles)));
    QVERIFY(lignes
                .filter(QRegularExpression(
                    "^\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d \\(serveur_udp\\) "))
                .size() > 0);
}

QTEST_GUILESS_MAIN(TestDemarrageProcessus)
#include "tst_demarrage_processus.moc"
