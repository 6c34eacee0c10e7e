#include "bacasable.h"
#include "doublureapplication.h"

#include "radio/fonctions_bases.h"

#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlQueryModel>
#include <QSqlResult>
#include <QtTest>

#include <cstring>
#include <memory>

// The few services of the device database that the radio service uses.
class TestBaseAppareil : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void essaisDeLaRequete_data();
    void essaisDeLaRequete();
    void typesDeVoiesDansLOrdreDesNumeros();
    void typesDeVoiesSansBase();
    void voiesContact_data();
    void voiesContact();
    void nombreDeVoiesLuUneFois();

private:
    std::unique_ptr<BacASable> bac;
};

namespace {

// A database that stays locked for a number of statements, then answers:
// counts how many statements execute_sql really tried.
class ResultatVerrouille : public QSqlResult
{
public:
    ResultatVerrouille(const QSqlDriver *pilote, int *essais, int echecs, const QString &code)
        : QSqlResult(pilote)
        , essais(essais)
        , echecs(echecs)
        , code(code)
    {}

protected:
    QVariant data(int) override { return {}; }
    bool isNull(int) override { return true; }
    bool reset(const QString &) override
    {
        ++*essais;
        if (*essais <= echecs) {
            setLastError(QSqlError(QStringLiteral("pilote"), QStringLiteral("database is locked"),
                                   QSqlError::StatementError, code));
            return false;
        }
        setActive(true);
        setSelect(false);
        return true;
    }
    bool fetch(int) override { return false; }
    bool fetchFirst() override { return false; }
    bool fetchLast() override { return false; }
    int size() override { return -1; }
    int numRowsAffected() override { return 0; }

private:
    int *essais;
    int echecs;
    QString code;
};

class PiloteVerrouille : public QSqlDriver
{
public:
    PiloteVerrouille(int echecs, const QString &code)
        : echecs(echecs)
        , code(code)
    {}

    int essais = 0;

    bool hasFeature(DriverFeature) const override { return false; }
    bool open(const QString &, const QString &, const QString &, const QString &, int,
              const QString &) override
    {
        setOpen(true);
        return true;
    }
    void close() override { setOpen(false); }
    QSqlResult *createResult() const override
    {
        return new ResultatVerrouille(this, const_cast<int *>(&essais), echecs, code);
    }

private:
    int echecs;
    QString code;
};

bool creerTable(const QString &chemin, const QList<QPair<int, QString>> &lignes)
{
    bool ok = true;
    {
        QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "preparation");
        base.setDatabaseName(chemin);
        ok = base.open();
        QSqlQuery requete(base);
        ok = ok && requete.exec("CREATE TABLE config_type_voie (nom varchar(100), numero integer)");
        for (const auto &ligne : lignes) {
            ok = ok && requete.prepare("INSERT INTO config_type_voie VALUES (?, ?)");
            requete.addBindValue(ligne.second);
            requete.addBindValue(ligne.first);
            ok = ok && requete.exec();
        }
        base.close();
    }
    QSqlDatabase::removeDatabase("preparation");
    return ok;
}

} // namespace

void TestBaseAppareil::init()
{
    bac = std::make_unique<BacASable>();
    QVERIFY(bac->estValide());
    bac->activer();
}

void TestBaseAppareil::cleanup()
{
    const QStringList noms = QSqlDatabase::connectionNames();
    for (const QString &nom : noms)
        QSqlDatabase::removeDatabase(nom);
    bac.reset();
}

void TestBaseAppareil::essaisDeLaRequete_data()
{
    QTest::addColumn<int>("echecs");
    QTest::addColumn<QString>("code");
    QTest::addColumn<bool>("resultat");
    QTest::addColumn<int>("essais");

    QTest::newRow("libre") << 0 << "5" << true << 1;
    QTest::newRow("verrouillee trois fois") << 3 << "5" << true << 4;
    QTest::newRow("libre au dixieme essai") << 9 << "5" << true << 10;
    QTest::newRow("verrouillee dix fois") << 10 << "5" << false << 10;
    QTest::newRow("toujours en erreur") << 1000 << "1" << false << 10;
    QTest::newRow("erreur numero 0") << 1000 << "0" << false << 10;
    QTest::newRow("erreur sans numero: reussite") << 1000 << "" << true << 1;
}

void TestBaseAppareil::essaisDeLaRequete()
{
    QFETCH(int, echecs);
    QFETCH(QString, code);
    QFETCH(bool, resultat);
    QFETCH(int, essais);

    auto *pilote = new PiloteVerrouille(echecs, code);
    QSqlDatabase base = QSqlDatabase::addDatabase(pilote);
    QVERIFY(base.open());
    fonctions_bases fb;
    QSqlQueryModel model;
    QCOMPARE(fb.execute_sql(&model, QStringLiteral("select * from config_type_voie")), resultat);
    QCOMPARE(pilote->essais, essais);
}

void TestBaseAppareil::typesDeVoiesDansLOrdreDesNumeros()
{
    QVERIFY(creerTable(bac->chemin("/var/base/itessalin.db"),
                       {{2, "RADIO_TEMP"}, {0, "AUCUN"}, {1, "PT100"}, {3, "l'apostrophe"}}));
    fonctions_bases fb;
    QVERIFY(fb.ouvre_base());
    QCOMPARE(fb.retourne_type_voies(),
             QStringList({"AUCUN", "PT100", "RADIO_TEMP", "l'apostrophe"}));
}

void TestBaseAppareil::typesDeVoiesSansBase()
{
    // No table at all: every attempt fails, the list stays empty.
    fonctions_bases fb;
    fb.ouvre_base();
    QCOMPARE(fb.retourne_type_voies(), QStringList());
}

void TestBaseAppareil::voiesContact_data()
{
    QTest::addColumn<QStringList>("types");
    QTest::addColumn<QList<int>>("attendu");

    QTest::newRow("un seul, casse melangee")
        << QStringList{"ANALOGIQUE", "Entree CoNTact sec", "RADIO"} << QList<int>{1};
    QTest::newRow("plusieurs") << QStringList{"CONTACT", "RADIO_CONTACT", "PT100", "contacts"}
                               << QList<int>{0, 1, 3};
    QTest::newRow("aucun") << QStringList{"CONTAC", "C O N T A C T"} << QList<int>();
}

void TestBaseAppareil::voiesContact()
{
    QFETCH(QStringList, types);
    QFETCH(QList<int>, attendu);

    QString erreur;
    QVERIFY2(DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"), types,
                                                    &erreur),
             qPrintable(erreur));
    fonctions_bases fb;
    QCOMPARE(fb.getLesTypesVoiesContact(), attendu);
}

void TestBaseAppareil::nombreDeVoiesLuUneFois()
{
    NBVOIES = 0;
    // No segment yet: nothing cached, the next call tries again.
    QCOMPARE(fonctions_bases::nb_voies_parametrables(), 64);
    QCOMPARE(NBVOIES, 0);

    DoublureApplication appli;
    QVERIFY(appli.creerZone(QStringLiteral("Config_iTessalin")));
    // The count is the 32-bit integer at byte 96 of the record.
    const qint32 publie = 48;
    std::memcpy(appli.donnees(QStringLiteral("Config_iTessalin")) + 96, &publie, sizeof publie);
    QCOMPARE(fonctions_bases::nb_voies_parametrables(), 64);
    QCOMPARE(NBVOIES, 48);

    appli.setNbVoiesPubliees(12);
    QCOMPARE(fonctions_bases::nb_voies_parametrables(), 64);
    QCOMPARE(NBVOIES, 48);
    NBVOIES = 0;
}

QTEST_GUILESS_MAIN(TestBaseAppareil)
#include "tst_baseappareil.moc"
