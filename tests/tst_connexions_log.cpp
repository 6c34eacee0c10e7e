// The connections' log: the stamped line with the process's memory, the
// connection log file, the val0 file, and the ps process that each written
// line costs (and that switched-off lines must not cost).
#include "faux_ps.h"

#include "bacasable.h"
#include "capturelog.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "connexions/qradio.h"

#include <QDir>
#include <QStandardPaths>
#include <QtTest>

namespace {

const QDateTime T0(QDate(2026, 11, 15), QTime(12, 51, 4));
const QString DATE_T0 = QStringLiteral("Sun Nov 15 12:51:04 2026");

class ConnexionEssai : public QConnexionRJ45
{
public:
    ConnexionEssai()
        : QConnexionRJ45(QStringLiteral("essai"))
    {}
    double getMesureEnCoursSousType() override { return 1.0; }
    QString genererIdTrame() override { return {}; }
};

QString pid()
{
    return QString::number(QCoreApplication::applicationPid());
}

QString nonTrouve()
{
    return QStringLiteral("PID %1 non trouvé (%2)")
        .arg(pid(), QCoreApplication::applicationFilePath());
}

QByteArray lire(const QString &chemin)
{
    QFile fichier(chemin);
    if (!fichier.open(QIODevice::ReadOnly))
        return {};
    return fichier.readAll();
}

} // namespace

class TestConnexionsLog : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanupTestCase();

    void memoireProcessus_data();
    void memoireProcessus();
    void memoireSansPs();
    void memoireAvecLeVraiPs();

    void ligneDuFichierDeLog();
    void fichierDeLogInaccessible();
    void ligneVal0EtProcessus_data();
    void ligneVal0EtProcessus();
    void voieRadioSansLogNeLancePasPs_data();
    void voieRadioSansLogNeLancePasPs();
};

void TestConnexionsLog::init()
{
    Horloge::figer(T0);
    QConnexionRJ45::dh_demarrage = T0.addSecs(-3600);
    QRadio::sourceLectures = {};
}

void TestConnexionsLog::cleanupTestCase()
{
    Horloge::liberer();
}

void TestConnexionsLog::memoireProcessus_data()
{
    QTest::addColumn<QString>("sortie");
    QTest::addColumn<QString>("attendu");

    // @PID@ is this process's PID; an empty expectation means "not found".
    QTest::newRow("espaces de tete gardes") << "  PID   VSZ\n  @PID@ 10424\n"
                                            << "PID   @PID@ 10424";
    QTest::newRow("apres d'autres processus")
        << "  PID   VSZ\n    1  2048\n  @PID@  9000\n  @PID@ 1\n"
        << "PID   @PID@  9000";
    QTest::newRow("PID prolonge d'un chiffre") << "  PID   VSZ\n@PID@0 10424\n"
                                               << "";
    QTest::newRow("PID suivi d'une tabulation") << "@PID@\t10424\n"
                                                << "";
    QTest::newRow("PID en deuxieme colonne") << "1 @PID@ 10424\n"
                                             << "";
    QTest::newRow("PID seul") << "@PID@\n"
                              << "";
    QTest::newRow("sortie vide") << ""
                                 << "";
}

void TestConnexionsLog::memoireProcessus()
{
    QFETCH(QString, sortie);
    QFETCH(QString, attendu);

    FauxPs ps;
    QVERIFY(ps.estValide());
    ps.definirSortie(sortie);

    const QString resultat = QConnexionRJ45::getProcessMemoryUsage();
    QCOMPARE(resultat,
             attendu.isEmpty() ? nonTrouve() : attendu.replace(QStringLiteral("@PID@"), pid()));
    QCOMPARE(ps.appels(), QStringList{QStringLiteral("-o pid,vsz")});
}

void TestConnexionsLog::memoireSansPs()
{
    QTemporaryDir vide;
    QVERIFY(vide.isValid());
    const QByteArray ancien = qgetenv("PATH");
    qputenv("PATH", vide.path().toLocal8Bit());
    const QString resultat = QConnexionRJ45::getProcessMemoryUsage();
    qputenv("PATH", ancien);
    QCOMPARE(resultat, nonTrouve());
}

void TestConnexionsLog::memoireAvecLeVraiPs()
{
    if (QStandardPaths::findExecutable(QStringLiteral("ps")).isEmpty())
        QSKIP("no ps on this system");
    const QString resultat = QConnexionRJ45::getProcessMemoryUsage();
    QVERIFY2(resultat.startsWith(QStringLiteral("PID ")), qPrintable(resultat));
    QVERIFY2(!resultat.contains(QStringLiteral("non trouvé")), qPrintable(resultat));
    QVERIFY(resultat.mid(4).trimmed().startsWith(pid() + QLatin1Char(' ')));
}

void TestConnexionsLog::ligneDuFichierDeLog()
{
    BacASable bac;
    QVERIFY(bac.estValide());
    bac.activer();
    FauxPs ps;

    ConnexionEssai c;
    c.definirEcrireFichierLog(true);
    CaptureLog log;
    c.ecrireLog(QStringLiteral("première"), false, false);
    Horloge::avancer(1);
    c.ecrireLog(QStringLiteral("seconde"), false, false);
    c.definirEcrireFichierLog(false);
    c.ecrireLog(QStringLiteral("hors fichier"), false, false);

    const QString memoire = FauxPs::memoireParDefaut();
    const QString ligne1 = DATE_T0 + QStringLiteral(" première (VSZ = ") + memoire + ')';
    const QString ligne2 =
        QStringLiteral("Sun Nov 15 12:51:05 2026 seconde (VSZ = ") + memoire + ')';
    QCOMPARE(log.lignes().mid(0, 2), (QStringList{ligne1, ligne2}));
    QCOMPARE(log.lignes().size(), 3);
    QCOMPARE(QString::fromUtf8(lire(bac.chemin(QStringLiteral("/var/log/acquisitionrj45.log")))),
             QString(ligne1 + '\n' + ligne2 + '\n'));
    QCOMPARE(ps.appels().size(), 3);
}

void TestConnexionsLog::fichierDeLogInaccessible()
{
    BacASable bac;
    QVERIFY(bac.estValide());
    bac.activer();
    FauxPs ps;
    const QString chemin = bac.chemin(QStringLiteral("/var/log/acquisitionrj45.log"));
    QVERIFY(QDir().mkpath(chemin));

    ConnexionEssai c;
    c.definirEcrireFichierLog(true);
    CaptureLog log;
    c.ecrireLog(QStringLiteral("un"), false, false);
    c.ecrireLog(QStringLiteral("deux"), false, false);

    const QString rapport = QStringLiteral("Impossible d'ouvrir le fichier ") + chemin +
                            QStringLiteral(" pour écriture des logs : ") +
                            QString::number(QFileDevice::OpenError);
    QCOMPARE(log.compter(rapport), 2);
    QCOMPARE(log.compter(QStringLiteral(" un (VSZ = ")), 1);
    QCOMPARE(log.compter(QStringLiteral(" deux (VSZ = ")), 1);
}

void TestConnexionsLog::ligneVal0EtProcessus_data()
{
    QTest::addColumn<bool>("actif");
    QTest::addColumn<bool>("forcer");

    QTest::newRow("lignes coupees") << false << false;
    QTest::newRow("lignes coupees, forcee") << false << true;
    QTest::newRow("lignes actives") << true << false;
}

void TestConnexionsLog::ligneVal0EtProcessus()
{
    QFETCH(bool, actif);
    QFETCH(bool, forcer);

    BacASable bac;
    QVERIFY(bac.estValide());
    bac.activer();
    FauxPs ps;

    ConnexionEssai c;
    c.setEcrireLog(actif);
    CaptureLog log;
    c.ecrireLog(QStringLiteral("valeur nulle : 0"), true, forcer);
    Horloge::avancer(61);
    c.ecrireLog(QStringLiteral("sans val0"), false, forcer);

    // The val0 file gets its line whether or not the ordinary line is on.
    QCOMPARE(lire(bac.chemin(QStringLiteral("/var/log/aradio_val0.txt"))),
             QString(DATE_T0 + QStringLiteral(" valeur nulle : 0\n")).toUtf8());
    const int ecrites = (actif || forcer) ? 2 : 0;
    QCOMPARE(log.lignes().size(), ecrites);
    QCOMPARE(ps.appels().size(), ecrites);
}

void TestConnexionsLog::voieRadioSansLogNeLancePasPs_data()
{
    QTest::addColumn<bool>("actif");

    QTest::newRow("log de la voie actif") << true;
    QTest::newRow("log de la voie coupe (defaut radio)") << false;
}

void TestConnexionsLog::voieRadioSansLogNeLancePasPs()
{
    QFETCH(bool, actif);

    FauxPs ps;
    QRadio radio(QStringLiteral("A1B2"), 0);
    QVERIFY(!radio.doitEcrireLog());
    if (actif)
        radio.setEcrireLog(true);

    // A whole failing cycle after start-up: the search, the fall-back to the
    // history and the default value each write lines.
    CaptureLog log;
    QCOMPARE(radio.getMesureEnCours(), -55.0);

    const QStringList appels = ps.appels();
    if (actif) {
        QVERIFY(appels.size() >= 5);
        QCOMPARE(appels.size(), log.lignes().size());
        QCOMPARE(log.compter(QStringLiteral(" Dernière mesure récupérée de l'historique = -55 (")),
                 1);
    } else {
        QCOMPARE(appels, QStringList());
        QCOMPARE(log.lignes(), QStringList());
    }
}

QTEST_GUILESS_MAIN(TestConnexionsLog)
#include "tst_connexions_log.moc"
