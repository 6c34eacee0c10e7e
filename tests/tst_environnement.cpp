#include "commun/environnement.h"
#include "commun/horloge.h"

#include <QtTest>

// The sandbox seams: with the variables unset the appliance's constants stand.
class TestEnvironnement : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void chemins_data();
    void chemins();
    void commandeSousLaRacine_data();
    void commandeSousLaRacine();
    void adresseEtPort_data();
    void adresseEtPort();
    void horlogeFigeeAvanceSansAttendre();
};

namespace {
void definir(const char *nom, const QString &valeur)
{
    if (valeur.isNull())
        qunsetenv(nom);
    else
        qputenv(nom, valeur.toLocal8Bit());
}
} // namespace

void TestEnvironnement::init()
{
    qunsetenv("ACQUISITIONRADIO_RACINE");
    qunsetenv("ACQUISITIONRADIO_ADRESSE");
    qunsetenv("ACQUISITIONRADIO_PORT");
}

void TestEnvironnement::cleanup()
{
    init();
    Horloge::liberer();
}

void TestEnvironnement::chemins_data()
{
    QTest::addColumn<QString>("racine");
    QTest::addColumn<QString>("attendu");
    QTest::newRow("variable absente") << QString() << "/var/base/hf.db";
    QTest::newRow("variable vide") << QString("") << "/var/base/hf.db";
    QTest::newRow("bac a sable") << "/tmp/bac"
                                 << "/tmp/bac/var/base/hf.db";
    QTest::newRow("barre finale") << "/tmp/bac//"
                                  << "/tmp/bac/var/base/hf.db";
}

void TestEnvironnement::chemins()
{
    QFETCH(QString, racine);
    QFETCH(QString, attendu);
    definir("ACQUISITIONRADIO_RACINE", racine);
    QCOMPARE(Environnement::chemin("/var/base/hf.db"), attendu);
}

void TestEnvironnement::commandeSousLaRacine_data()
{
    QTest::addColumn<QString>("racine");
    QTest::addColumn<QString>("commande");
    QTest::addColumn<QByteArray>("attendu");
    QTest::newRow("sans racine, inchangee")
        << QString() << "/etc/init.d/tunslip6 stop" << QByteArray("/etc/init.d/tunslip6 stop");
    QTest::newRow("racine, arguments gardes")
        << "/tmp/bac"
        << "/etc/init.d/tunslip6 start" << QByteArray("'/tmp/bac/etc/init.d/tunslip6' start");
    QTest::newRow("racine, sans argument")
        << "/tmp/bac"
        << "/etc/scripts/reset_br.sh" << QByteArray("'/tmp/bac/etc/scripts/reset_br.sh'");
    QTest::newRow("racine avec espace et apostrophe")
        << "/tmp/b a'c"
        << "/etc/scripts/repair_br.sh" << QByteArray("'/tmp/b a'\\''c/etc/scripts/repair_br.sh'");
}

void TestEnvironnement::commandeSousLaRacine()
{
    QFETCH(QString, racine);
    QFETCH(QString, commande);
    QFETCH(QByteArray, attendu);
    definir("ACQUISITIONRADIO_RACINE", racine);
    QCOMPARE(Environnement::commande(commande), attendu);
}

void TestEnvironnement::adresseEtPort_data()
{
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("adresseAttendue");
    QTest::addColumn<int>("portAttendu");
    QTest::newRow("constantes") << QString() << QString() << "64:ff9b::1" << 5042;
    QTest::newRow("bac a sable") << "::1"
                                 << "40000"
                                 << "::1" << 40000;
    QTest::newRow("port zero laisse le noyau choisir") << "::1"
                                                       << "0"
                                                       << "::1" << 0;
    QTest::newRow("port invalide") << QString() << "abc"
                                   << "64:ff9b::1" << 5042;
    QTest::newRow("port hors plage") << QString() << "70000"
                                     << "64:ff9b::1" << 5042;
    QTest::newRow("port negatif") << QString() << "-1"
                                  << "64:ff9b::1" << 5042;
}

void TestEnvironnement::adresseEtPort()
{
    QFETCH(QString, adresse);
    QFETCH(QString, port);
    QFETCH(QString, adresseAttendue);
    QFETCH(int, portAttendu);
    definir("ACQUISITIONRADIO_ADRESSE", adresse);
    definir("ACQUISITIONRADIO_PORT", port);
    QCOMPARE(Environnement::adresseLiaison("64:ff9b::1"), adresseAttendue);
    QCOMPARE(int(Environnement::portLiaison(5042)), portAttendu);
}

void TestEnvironnement::horlogeFigeeAvanceSansAttendre()
{
    const QDateTime depart = QDateTime::fromSecsSinceEpoch(1700000000);
    Horloge::figer(depart);
    QElapsedTimer chrono;
    chrono.start();
    Horloge::dormir(3600);
    QVERIFY(chrono.elapsed() < 1000);
    Horloge::avancer(5);
    QCOMPARE(Horloge::maintenantSecondes(), quint32(1700000000 + 3600 + 5));
    QCOMPARE(Horloge::maintenant(), depart.addSecs(3605));
    Horloge::liberer();
    QVERIFY(qAbs(Horloge::maintenant().secsTo(QDateTime::currentDateTime())) <= 1);
}

QTEST_APPLESS_MAIN(TestEnvironnement)
#include "tst_environnement.moc"
