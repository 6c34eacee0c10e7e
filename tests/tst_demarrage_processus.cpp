#include "bacasable.h"
#include "doublureapplication.h"

#include <QtTest>

#include <sys/shm.h>

// The daemon as the appliance starts it: the start line, "-log" and the
// acquisition timer, "--help" and "--version", and one instance per root,
// seen from outside the process.
class TestDemarrageProcessus : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void ligneDeDemarrageSeule_data();
    void ligneDeDemarrageSeule();
    void logEtPeriodeUneSeconde();
    void sansEffet_data();
    void sansEffet();

private:
    QStringList lancer(const QStringList &arguments, int millisecondes);
    BacASable bac;
    DoublureApplication doublure;
};

void TestDemarrageProcessus::initTestCase()
{
    QVERIFY(bac.estValide());
    bac.activer();
    // What the tunnel script inherits from the daemon.
    bac.ecrireScript("/etc/init.d/tunslip6",
                     "ls -l /proc/$$/fd/ > '" + bac.chemin("/fd.txt") + "'");
    QVERIFY(doublure.creerZones());
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

void TestDemarrageProcessus::ligneDeDemarrageSeule_data()
{
    QTest::addColumn<bool>("sansRun");
    QTest::newRow("lock taken") << false;
    QTest::newRow("no /run: said once, runs all the same") << true;
}

void TestDemarrageProcessus::ligneDeDemarrageSeule()
{
    QFETCH(bool, sansRun);
    if (sansRun)
        QVERIFY(QDir(bac.chemin("/run")).removeRecursively());
    // The tunnel restart of the server's construction is always logged; the
    // acquisition side prints its start line and nothing else. The first
    // cycle is 20 s away, so the window can leave a slow or emulated machine
    // time to start the process as well as the 2 s tunnel restart.
    QStringList lignes = lancer({}, 5000);
    QDir().mkpath(bac.chemin("/run"));
    if (sansRun) {
        QVERIFY(!lignes.isEmpty());
        QVERIFY2(
            lignes.takeFirst().startsWith(
                QStringLiteral(
                    "acquisitionradio: cannot open the lock file %1: No such file or directory "
                    "(errno 2); running without")
                    .arg(bac.chemin("/run/acquisitionradio.lock"))),
            qPrintable(lignes.join('\n')));
    }
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
    QFile fd(bac.chemin("/fd.txt"));
    QVERIFY(fd.open(QIODevice::ReadOnly));
    QVERIFY2(!fd.readAll().contains("acquisitionradio.lock"), "the lock reached the script");
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

// The pid of the last process that attached or detached the segment.
static pid_t dernierAttachement(const QString &cle)
{
    const QByteArray fichier = QFile::encodeName(QSharedMemory(cle).nativeKey());
    const key_t cleSysteme = ftok(fichier.constData(), 'Q');
    const int id = cleSysteme == -1 ? -1 : shmget(cleSysteme, 0, 0);
    shmid_ds etat{};
    return id == -1 || shmctl(id, IPC_STAT, &etat) != 0 ? -1 : etat.shm_lpid;
}

void TestDemarrageProcessus::sansEffet_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("secondeInstance");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("sortie"); // a pattern of standard output, then of error
    QTest::addColumn<QString>("erreur");
    QTest::newRow("--help, after an unknown argument")
        << QStringList{"x", "--help", "-log"} << false << 0
        << "^Usage: acquisitionradio \\[-v\\] \\[-log\\] \\[-periode SECONDS\\]\n(.|\n)*"
           "ACQUISITIONRADIO_RACINE(.|\n)*ACQUISITIONRADIO_ADRESSE(.|\n)*ACQUISITIONRADIO_PORT"
           "(.|\n)*TMPDIR(.|\n)*/var/base/hf.db(.|\n)*/run/acquisitionradio.lock(.|\n)*\n$"
        << "^$";
    QTest::newRow("--version") << QStringList{"--version"} << false << 0
                               << "^acquisitionradio " ACQUISITIONRADIO_VERSION "\n$"
                               << "^$";
    QTest::newRow("second instance on the same root")
        << QStringList{"-periode", "1"} << true << 1 << "^$"
        << "^acquisitionradio: another instance already runs on this root \\(pid %1, lock "
           "[^)]*/run/acquisitionradio.lock\\); not started\n$";
}

// Neither answer nor refusal builds the service: no script is called, the
// port stays free and no segment is attached.
void TestDemarrageProcessus::sansEffet()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, secondeInstance);
    QFETCH(int, code);
    QFETCH(QString, sortie);
    QFETCH(QString, erreur);

    const quint16 port = BacASable::portLibre();
    QProcess premier;
    if (secondeInstance) {
        const int n = bac.appels().size();
        premier.setProcessEnvironment(bac.environnement(port));
        premier.start(CHEMIN_DAEMON, QStringList());
        // Its tunnel restart over, the first one has bound its socket.
        QVERIFY(QTest::qWaitFor([&] { return bac.appels().size() == n + 2; }, 20000));
        erreur = erreur.arg(premier.processId());
    }
    const QStringList appelsAvant = bac.appels();

    QProcess daemon;
    daemon.setProcessEnvironment(bac.environnement(port));
    daemon.start(CHEMIN_DAEMON, arguments);
    const bool fini = daemon.waitForFinished(10000);
    if (!fini)
        daemon.kill();
    const QString out = QString::fromUtf8(daemon.readAllStandardOutput());
    const QString err = QString::fromUtf8(daemon.readAllStandardError());
    const bool premierEnMarche = premier.state() == QProcess::Running;
    premier.terminate();
    premier.waitForFinished();

    QVERIFY2(fini && daemon.exitStatus() == QProcess::NormalExit, qPrintable(err));
    QCOMPARE(daemon.exitCode(), code);
    QVERIFY2(QRegularExpression(sortie).match(out).hasMatch(), qPrintable(out));
    QVERIFY2(QRegularExpression(erreur).match(err).hasMatch(), qPrintable(err));
    QVERIFY(!secondeInstance || premierEnMarche);
    QCOMPARE(bac.appels(), appelsAvant);
    QVERIFY2(!err.contains("bind() error"), qPrintable(err));
    for (const QString &cle : DoublureApplication::cles()) {
        const pid_t pid = dernierAttachement(cle);
        QVERIFY2(pid > 0 && pid != daemon.processId(), qPrintable(cle));
    }
}

QTEST_GUILESS_MAIN(TestDemarrageProcessus)
#include "tst_demarrage_processus.moc"
