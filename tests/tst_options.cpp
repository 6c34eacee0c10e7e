#include "app/options.h"

#include <QtTest>

#include <vector>

// The daemon's command line: three options, a consumed argument, later
// values winning and everything unknown ignored.
class TestOptions : public QObject
{
    Q_OBJECT
private slots:
    void analyse_data();
    void analyse();
    void intervalleDuMinuteur_data();
    void intervalleDuMinuteur();
};

void TestOptions::analyse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("verbeux");
    QTest::addColumn<int>("nbLog");
    QTest::addColumn<int>("periode");

    QTest::newRow("aucun") << QStringList() << false << 0 << 20;
    QTest::newRow("periode puis log") << QStringList{"-periode", "5", "-log"} << false << 1 << 5;
    QTest::newRow("periode non numerique") << QStringList{"-periode", "abc"} << false << 0 << 20;
    QTest::newRow("argument consomme meme non numerique")
        << QStringList{"-periode", "-log"} << false << 0 << 20;
    QTest::newRow("periode en dernier") << QStringList{"-log", "-periode"} << false << 1 << 20;
    QTest::newRow("la derniere valeur gagne")
        << QStringList{"-periode", "3", "-periode", "7"} << false << 0 << 7;
    QTest::newRow("verbeux seul") << QStringList{"-v"} << true << 0 << 20;
    QTest::newRow("casse exacte") << QStringList{"-LOG", "-V", "-Periode", "9"} << false << 0 << 20;
    QTest::newRow("inconnus ignores")
        << QStringList{"x", "-log", "--periode", "4", "-v"} << true << 1 << 20;
    QTest::newRow("log deux fois") << QStringList{"-log", "-log"} << false << 2 << 20;
    QTest::newRow("zero et negatif passes tels quels")
        << QStringList{"-periode", "0", "-periode", "-3"} << false << 0 << -3;
    QTest::newRow("nombre suivi de texte") << QStringList{"-periode", "12s"} << false << 0 << 20;
}

void TestOptions::analyse()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, verbeux);
    QFETCH(int, nbLog);
    QFETCH(int, periode);

    std::vector<QByteArray> octets{"acquisitionradio"};
    for (const QString &a : qAsConst(arguments))
        octets.push_back(a.toLocal8Bit());
    std::vector<const char *> argv;
    for (const QByteArray &o : octets)
        argv.push_back(o.constData());
    argv.push_back(nullptr); // as argv[argc] always is

    const Options options = Options::analyser(static_cast<int>(octets.size()), argv.data());
    QCOMPARE(options.verbeux, verbeux);
    QCOMPARE(options.nbLog, nbLog);
    QCOMPARE(options.periode, periode);
}

void TestOptions::intervalleDuMinuteur_data()
{
    QTest::addColumn<int>("periode");
    QTest::addColumn<int>("intervalle");
    QTest::newRow("defaut") << 20 << 20000;
    QTest::newRow("une seconde") << 1 << 1000;
    QTest::newRow("negatif") << -2 << -2000;
    QTest::newRow("trop grand pour un int") << 3000000 << INT_MAX;
}

void TestOptions::intervalleDuMinuteur()
{
    QFETCH(int, periode);
    QFETCH(int, intervalle);
    Options options;
    options.periode = periode;
    QCOMPARE(options.intervalleMs(), intervalle);
}

QTEST_APPLESS_MAIN(TestOptions)
#include "tst_options.moc"
