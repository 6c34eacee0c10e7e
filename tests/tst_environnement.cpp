#include "commun/environnement.h"
#include "commun/horloge.h"

#include <QtTest>

namespace {
void definir(const char *nom, const QString &valeur)
{
    if (valeur.isNull())
        qunsetenv(nom);
    else
        qputenv(nom, valeur.toLocal8Bit());
}
} // namespace

// The sandbox seams: with the variables unset the appliance's constants stand.
class TestEnvironnement : public QObject
{
    Q_OBJECT
private slots:
    void init()
    {
        for (const char *nom :
             {"ACQUISITIONRADIO_RACINE", "ACQUISITIONRADIO_ADRESSE", "ACQUISITIONRADIO_PORT"})
            qunsetenv(nom);
    }
    void cleanup()
    {
        init();
        Horloge::liberer();
    }

    void racine_data()
    {
        QTest::addColumn<QString>("racine");
        QTest::addColumn<QString>("chemin"); // of "/var/base/hf.db"
        QTest::addColumn<QString>("commande");
        QTest::addColumn<QByteArray>("attendue");
        // clang-format off
        QTest::newRow("variable absente") << QString() << "/var/base/hf.db"
            << "/etc/init.d/tunslip6 stop" << QByteArray("/etc/init.d/tunslip6 stop");
        QTest::newRow("variable vide") << QString("") << "/var/base/hf.db"
            << "/etc/init.d/tunslip6 stop" << QByteArray("/etc/init.d/tunslip6 stop");
        QTest::newRow("arguments gardes") << "/tmp/bac" << "/tmp/bac/var/base/hf.db"
            << "/etc/init.d/tunslip6 start" << QByteArray("'/tmp/bac/etc/init.d/tunslip6' start");
        QTest::newRow("barre finale, sans argument") << "/tmp/bac//" << "/tmp/bac/var/base/hf.db"
            << "/etc/scripts/reset_br.sh" << QByteArray("'/tmp/bac/etc/scripts/reset_br.sh'");
        QTest::newRow("espace et apostrophe") << "/b a'c" << "/b a'c/var/base/hf.db"
            << "/etc/scripts/repair_br.sh" << QByteArray("'/b a'\\''c/etc/scripts/repair_br.sh'");
        // clang-format on
    }
    void racine()
    {
        QFETCH(QString, racine);
        QFETCH(QString, commande);
        definir("ACQUISITIONRADIO_RACINE", racine);
        QTEST(Environnement::chemin("/var/base/hf.db"), "chemin");
        QTEST(Environnement::commande(commande), "attendue");
    }

    void adresseEtPort_data()
    {
        QTest::addColumn<QString>("adresse");
        QTest::addColumn<QString>("port");
        QTest::addColumn<QString>("adresseAttendue");
        QTest::addColumn<int>("portAttendu");
        // clang-format off
        QTest::newRow("constantes") << QString() << QString() << "64:ff9b::1" << 5042;
        QTest::newRow("bac a sable") << "::1" << "40000" << "::1" << 40000;
        QTest::newRow("port zero laisse le noyau choisir") << "::1" << "0" << "::1" << 0;
        QTest::newRow("port invalide") << QString() << "abc" << "64:ff9b::1" << 5042;
        QTest::newRow("port hors plage") << QString() << "70000" << "64:ff9b::1" << 5042;
        QTest::newRow("port negatif") << QString() << "-1" << "64:ff9b::1" << 5042;
        // clang-format on
    }
    void adresseEtPort()
    {
        QFETCH(QString, adresse);
        QFETCH(QString, port);
        definir("ACQUISITIONRADIO_ADRESSE", adresse);
        definir("ACQUISITIONRADIO_PORT", port);
        QTEST(Environnement::adresseLiaison("64:ff9b::1"), "adresseAttendue");
        QTEST(int(Environnement::portLiaison(5042)), "portAttendu");
    }

    void horlogeFigeeAvanceSansAttendre()
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
};

QTEST_APPLESS_MAIN(TestEnvironnement)
#include "tst_environnement.moc"
