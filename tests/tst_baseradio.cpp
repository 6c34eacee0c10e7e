#include "bancserveur.h"

#include <QFile>
#include <QtTest>

#include <sys/stat.h>

// The radio database: its schema, the save request's per-module update and
// the retention purges.
class TestBaseRadio : public QObject
{
    Q_OBJECT
private slots:
    void schema_data();
    void schema();
    void secondDemarrageSansEffet();
    void miseAJourOuSuppressionModule_data();
    void miseAJourOuSuppressionModule();
    void erreurMiseAJourModule();
    void purgesALaSeconde_data();
    void purgesALaSeconde();
    void journalDesPurges_data();
    void journalDesPurges();
    void erreurDePurge();
};

namespace {

const QString MODULES_SQL = QStringLiteral(
    "CREATE TABLE modules ( \n module varchar(10), \n parent varchar(10), \n type varchar(3), \n "
    "rank double, \n date_dernier_acces integer, \n x integer, \n y integer, \n nom varchar(100), "
    "\n batterie double, \n valeur double, \n date_changement_pile integer \n)");
const QString MESURES_HF_SQL = QStringLiteral(
    "CREATE TABLE mesures_hf ( \nmodule varchar(10), \ndateheure_mesure_hf integer, \nparent "
    "varchar(10), \nrank double, \nbatterie double, \nvaleur varchar(30), \nalim integer \n)");
const QString MESURES_TAUX_SQL = QStringLiteral(
    "CREATE TABLE mesures_taux ( \nmodule varchar(10), \ndateheure_mesure_taux integer, "
    "\ntaux_reception double, \ntaux_utilisation double \n)");

int mode(const QString &chemin)
{
    struct stat etat;
    if (::stat(QFile::encodeName(chemin).constData(), &etat) != 0)
        return -1;
    return static_cast<int>(etat.st_mode & 0777);
}

QByteArray contenu(const QString &chemin)
{
    QFile fichier(chemin);
    return fichier.open(QIODevice::ReadOnly) ? fichier.readAll() : QByteArray();
}

} // namespace

void TestBaseRadio::schema_data()
{
    QTest::addColumn<bool>("enregistrerMesuresHf");
    QTest::addColumn<QStringList>("tables");
    QTest::addColumn<QStringList>("index");

    // The two history tables ask for indexes of the same names; the file
    // keeps those of the table created first.
    QTest::newRow("avec l'historique des lectures")
        << true
        << QStringList{"mesures_hf|" + MESURES_HF_SQL, "mesures_taux|" + MESURES_TAUX_SQL,
                       "modules|" + MODULES_SQL}
        << QStringList{"dateheure|mesures_hf", "module|modules", "module_dateheure|mesures_hf",
                       "parent|modules"};
    QTest::newRow("sans l'historique des lectures")
        << false << QStringList{"mesures_taux|" + MESURES_TAUX_SQL, "modules|" + MODULES_SQL}
        << QStringList{"dateheure|mesures_taux", "module|modules", "module_dateheure|mesures_taux",
                       "parent|modules"};
}

void TestBaseRadio::schema()
{
    QFETCH(bool, enregistrerMesuresHf);
    QFETCH(QStringList, tables);
    QFETCH(QStringList, index);

    BancServeur banc;
    QVERIFY(QFile::remove(banc.cheminBase()));
    banc.serveur->enregistrerMesuresHf = enregistrerMesuresHf;
    banc.serveur->creerBD();

    QCOMPARE(banc.requete("select name, sql from sqlite_master where type='table' order by name"),
             tables);
    QCOMPARE(banc.requete("select name, tbl_name from sqlite_master where type='index' "
                          "order by name"),
             index);
    // The main application opens the file under another user.
    QCOMPARE(mode(banc.cheminBase()), 0666);
}

void TestBaseRadio::secondDemarrageSansEffet()
{
    BancServeur banc;
    QVERIFY(QFile::exists(banc.cheminBase()));
    banc.requete("insert into modules (module, date_changement_pile) values ('12', 5)");
    const QByteArray avant = contenu(banc.cheminBase());
    QVERIFY(!avant.isEmpty());
    QVERIFY(
        QFile::setPermissions(banc.cheminBase(), QFileDevice::ReadOwner | QFileDevice::WriteOwner));

    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->creerBD();
    QCOMPARE(BancServeur::messages(capture), QStringList());
    QCOMPARE(contenu(banc.cheminBase()), avant);
    QCOMPARE(mode(banc.cheminBase()), 0666);
}

void TestBaseRadio::miseAJourOuSuppressionModule_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<bool>("present");
    QTest::addColumn<QStringList>("modules");

    QTest::newRow("present: date de changement de pile")
        << "12" << true << QStringList{"12|1700000000", "13|-1", "x'y|-1"};
    QTest::newRow("retire: ligne supprimee") << "12" << false << QStringList{"13|-1", "x'y|-1"};
    QTest::newRow("slot libre: aucune requete")
        << "" << false << QStringList{"12|-1", "13|-1", "x'y|-1"};
    QTest::newRow("apostrophe dans l'adresse, retire")
        << "x'y" << false << QStringList{"12|-1", "13|-1"};
    QTest::newRow("apostrophe dans l'adresse, present")
        << "x'y" << true << QStringList{"12|-1", "13|-1", "x'y|1700000000"};
    QTest::newRow("adresse qui tenterait de tout effacer")
        << "' or '1'='1" << false << QStringList{"12|-1", "13|-1", "x'y|-1"};
    QTest::newRow("present, module inconnu")
        << "14" << true << QStringList{"12|-1", "13|-1", "x'y|-1"};
}

void TestBaseRadio::miseAJourOuSuppressionModule()
{
    QFETCH(QString, module);
    QFETCH(bool, present);
    QFETCH(QStringList, modules);

    BancServeur banc;
    banc.requete("insert into modules (module, date_changement_pile) values ('12', -1), "
                 "('13', -1), ('x''y', -1)");
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->setModuleBD(module, 1700000000, present);
    // Twice: the second run finds its connection again.
    banc.serveur->setModuleBD(module, 1700000000, present);
    QCOMPARE(banc.requete("select module, date_changement_pile from modules order by module"),
             modules);
    QCOMPARE(BancServeur::messages(capture), QStringList());
}

void TestBaseRadio::erreurMiseAJourModule()
{
    BancServeur banc;
    banc.requete("drop table modules");
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->setModuleBD("12", 5, true);
    banc.serveur->setModuleBD("12", 5, false);
    const QStringList messages = BancServeur::messages(capture);
    QCOMPARE(messages.size(), 2);
    QVERIFY2(messages.at(0).startsWith(
                 "Erreur exécution requete maj ou suppression module : update modules set "
                 "date_changement_pile='5' where module='12' : 1 : no such table: modules"),
             qPrintable(messages.at(0)));
    QVERIFY2(messages.at(1).startsWith("Erreur exécution requete maj ou suppression module : "
                                       "delete from modules where module='12' : 1 : "),
             qPrintable(messages.at(1)));
}

void TestBaseRadio::purgesALaSeconde_data()
{
    QTest::addColumn<QString>("purge");
    QTest::addColumn<bool>("enregistrerMesuresHf");
    QTest::addColumn<int>("dureeModules");
    QTest::addColumn<QStringList>("restants");

    // Rows are made 0, 100, 101, 1296000, 1296001 and 8000000 s old.
    const QStringList quinzeJours{"0", "100", "101", "1296000"};
    const QStringList tous{"0", "100", "101", "1296000", "1296001", "8000000"};
    QTest::newRow("lectures") << "mesures_hf" << true << -1 << quinzeJours;
    QTest::newRow("lectures non enregistrees: gardees") << "mesures_hf" << false << -1 << tous;
    QTest::newRow("taux") << "mesures_taux" << true << -1 << quinzeJours;
    QTest::newRow("taux purges meme sans lectures") << "mesures_taux" << false << -1 << quinzeJours;
    QTest::newRow("modules: purge desactivee") << "modules" << true << -1 << tous;
    QTest::newRow("modules: duree nulle, desactivee") << "modules" << true << 0 << tous;
    QTest::newRow("modules: 100 s") << "modules" << true << 100 << QStringList{"0", "100"};
}

void TestBaseRadio::purgesALaSeconde()
{
    QFETCH(QString, purge);
    QFETCH(bool, enregistrerMesuresHf);
    QFETCH(int, dureeModules);
    QFETCH(QStringList, restants);

    BancServeur banc;
    const QString colonne = purge == "modules"      ? "date_dernier_acces"
                            : purge == "mesures_hf" ? "dateheure_mesure_hf"
                                                    : "dateheure_mesure_taux";
    for (const qint64 age : {0, 100, 101, 1296000, 1296001, 8000000})
        banc.requete(QStringLiteral("insert into %1 (module, %2) values ('%3', %4)")
                         .arg(purge, colonne)
                         .arg(age)
                         .arg(BancServeur::MAINTENANT - age));
    banc.serveur->enregistrerMesuresHf = enregistrerMesuresHf;
    banc.serveur->dureeConservationModules = dureeModules;

    if (purge == "modules")
        banc.serveur->supprimerAnciensModules();
    else if (purge == "mesures_hf")
        banc.serveur->supprimerAnciennesMesures();
    else
        banc.serveur->supprimerAnciensTaux();

    QCOMPARE(
        banc.requete(QStringLiteral("select module from %1 order by %2 desc").arg(purge, colonne)),
        restants);
}

void TestBaseRadio::journalDesPurges_data()
{
    QTest::addColumn<QString>("purge");
    QTest::addColumn<bool>("enregistrerMesuresHf");
    QTest::addColumn<QStringList>("premier");
    QTest::addColumn<QStringList>("second");

    QTest::newRow("lectures")
        << "mesures" << true
        << QStringList{"début supprimerAnciennesMesures",
                       "supprimerAnciennesMesures "
                       "QSqlDatabase::contains(\"hf_supprimerAnciennesMesures\")",
                       "supprimerAnciennesMesures QSqlDatabase::addDatabase(\"QSQLITE\", "
                       "\"hf_supprimerAnciennesMesures\")",
                       "supprimerAnciennesMesures setDatabaseName",
                       "supprimerAnciennesMesures après this->db.open()",
                       "supprimerAnciennesMesures query(db)",
                       "supprimerAnciennesMesures query.exec",
                       "supprimerAnciennesMesures après query.exec",
                       "supprimerAnciennesMesures db.close()",
                       "supprimerAnciennesMesures après db.close()",
                       "fin supprimerAnciennesMesures"}
        << QStringList{
               "début supprimerAnciennesMesures",
               "supprimerAnciennesMesures QSqlDatabase::contains(\"hf_supprimerAnciennesMesures\")",
               "supprimerAnciennesMesures QSqlDatabase::database(\"hf_supprimerAnciennesMesures\")",
               "supprimerAnciennesMesures après this->db.open()",
               "supprimerAnciennesMesures query(db)",
               "supprimerAnciennesMesures query.exec",
               "supprimerAnciennesMesures après query.exec",
               "supprimerAnciennesMesures db.close()",
               "supprimerAnciennesMesures après db.close()",
               "fin supprimerAnciennesMesures"};
    const QStringList lecturesSeules{"début supprimerAnciennesMesures",
                                     "fin supprimerAnciennesMesures"};
    QTest::newRow("lectures non enregistrees")
        << "mesures" << false << lecturesSeules << lecturesSeules;
    const QStringList taux{
        "début supprimerAnciensTaux",
        "supprimerAnciensTaux QSqlDatabase::contains(\"hf_supprimerAnciensTaux\")",
        "supprimerAnciensTaux QSqlDatabase::addDatabase(\"QSQLITE\", \"hf_supprimerAnciensTaux\")",
        "supprimerAnciensTaux setDatabaseName",
        "supprimerAnciensTaux après this->db.open()",
        "supprimerAnciensTaux query(db)",
        "supprimerAnciensTaux query.exec",
        "supprimerAnciensTaux après query.exec",
        "supprimerAnciensTaux db.close()",
        "supprimerAnciensTaux après db.close()",
        "fin supprimerAnciensTaux"};
    QStringList tauxEnsuite = taux;
    tauxEnsuite.replace(2,
                        "supprimerAnciensTaux QSqlDatabase::database(\"hf_supprimerAnciensTaux\")");
    tauxEnsuite.removeAt(3);
    QTest::newRow("taux") << "taux" << false << taux << tauxEnsuite;
    const QStringList modules{"début supprimerAnciensModules", "fin supprimerAnciensModules"};
    QTest::newRow("modules") << "modules" << true << modules << modules;
}

void TestBaseRadio::journalDesPurges()
{
    QFETCH(QString, purge);
    QFETCH(bool, enregistrerMesuresHf);
    QFETCH(QStringList, premier);
    QFETCH(QStringList, second);

    BancServeur banc;
    banc.serveur->enregistrerMesuresHf = enregistrerMesuresHf;
    banc.serveur->setLog();
    for (const QStringList &attendu : {premier, second}) {
        CaptureLog capture;
        if (purge == "modules")
            banc.serveur->supprimerAnciensModules();
        else if (purge == "mesures")
            banc.serveur->supprimerAnciennesMesures();
        else
            banc.serveur->supprimerAnciensTaux();
        QCOMPARE(BancServeur::messages(capture), attendu);
    }
}

void TestBaseRadio::erreurDePurge()
{
    BancServeur banc;
    banc.requete("drop table mesures_hf");
    banc.requete("drop table mesures_taux");
    CaptureLog capture;
    // Without "-log" a failed purge goes unreported.
    banc.serveur->supprimerAnciennesMesures();
    banc.serveur->supprimerAnciensTaux();
    QCOMPARE(capture.lignes(), QStringList());

    banc.serveur->setLog();
    banc.serveur->supprimerAnciennesMesures();
    banc.serveur->supprimerAnciensTaux();
    const QStringList erreurs = capture.contenant("Erreur suppression");
    QCOMPARE(erreurs.size(), 2);
    QVERIFY2(erreurs.at(0).contains(
                 "(serveur_udp) Erreur suppression mesures_hf : 1 : no such table: mesures_hf"),
             qPrintable(erreurs.at(0)));
    QVERIFY2(erreurs.at(1).contains(
                 "(serveur_udp) Erreur suppression mesures_taux : 1 : no such table: mesures_taux"),
             qPrintable(erreurs.at(1)));
}

QTEST_GUILESS_MAIN(TestBaseRadio)
#include "tst_baseradio.moc"
