#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "radio/fonctions_bases.h"
#include "udp/qserveurudp.h"

#include <QSqlQuery>
#include <QSqlQueryModel>
#include <QtTest>

#include <cstring>
#include <memory>

// The radio data: "Zone_HF", the device database, the radio database, rates and
// purges. "Zone_HF" is read as raw bytes at the offsets both processes agree
// on, so a layout fault shows even when reader and writer agree with each other.
enum Octet { MODULE = 216, VALEUR = 103, PILE = 160, NB_SAUTS = 184, TAUX = 192, DATEHEURE = 208 };
const quint32 MAINTENANT = 1700000000u;

class TestBaseRadio : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void champsAuxOctetsConvenus();
    void ecriture_data();
    void ecriture();
    void voiesRadio_data();
    void voiesRadio();
    void essaisDeLaRequete_data();
    void essaisDeLaRequete();
    void typesDeVoies();
    void schemaEtSecondDemarrage();
    void setModuleBD();
    void purgesALaSeconde();
    void taux_data();
    void taux();

private:
    void demarrer();
    QStringList requete(const QString &sql) const;
    void trames(const QStringList &trames);

    BacASable bac;
    const QString fichier = bac.chemin(QStringLiteral("/var/base/hf.db"));
    DoublureApplication appli;
    std::unique_ptr<QServeurUdp> serveur;
};

namespace {

template <typename T>
QByteArray octets(const T &valeur)
{
    return QByteArray(reinterpret_cast<const char *>(&valeur), sizeof valeur);
}

gestion_radio module(const QByteArray &numero, char present = 1)
{
    gestion_radio gr{};
    gr.present = present;
    Champs::ecrireTexte(gr.numero, gestion_radio::LARGEUR_NUMERO, numero, 50);
    return gr;
}

QByteArray contenu(const QString &chemin)
{
    QFile fichier(chemin);
    return fichier.open(QIODevice::ReadOnly) ? fichier.readAll() : QByteArray();
}

} // namespace

// One set of segments for the run: each one made may meet a stale one's key.
void TestBaseRadio::initTestCase()
{
    bac.activer();
    QString erreur;
    QVERIFY2(appli.creerZones(&erreur), qPrintable(erreur));
}

void TestBaseRadio::init()
{
    serveur.reset();
    const QStringList noms = QSqlDatabase::connectionNames(); // Qt keeps them process-wide
    for (const QString &nom : noms)
        QSqlDatabase::removeDatabase(nom);
    QFile::remove(fichier);
    QFile::remove(bac.chemin(QStringLiteral("/var/base/itessalin.db")));
    for (const QString &cle : DoublureApplication::cles())
        std::memset(appli.donnees(cle), 0, size_t(DoublureApplication::tailleZone(cle)));
}

// A server with a new radio database, the clock frozen at MAINTENANT.
void TestBaseRadio::demarrer()
{
    Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT));
    serveur = std::make_unique<QServeurUdp>();
    Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT)); // the tunnel restart moved it
    QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "test").setDatabaseName(fichier);
}

// The first column of each row of the radio database.
QStringList TestBaseRadio::requete(const QString &sql) const
{
    QStringList lignes;
    for (QSqlQuery q(sql, QSqlDatabase::database(QStringLiteral("test"))); q.next();)
        lignes << q.value(0).toString();
    return lignes;
}

// Frames as "age:module:parent:current_rank", in arrival order.
void TestBaseRadio::trames(const QStringList &trames)
{
    for (const QString &t : trames)
        serveur->ajouterInfoTrame(QServeurUdp::_info_trame(
            QDateTime::fromSecsSinceEpoch(MAINTENANT - t.section(':', 0, 0).toInt()),
            t.section(':', 1, 1), t.section(':', 3).toDouble(), t.section(':', 2, 2), -1));
}

void TestBaseRadio::champsAuxOctetsConvenus()
{
    // Known in slot 4, a 50-byte address with no NUL is matched over 50 bytes.
    const QByteArray numero(50, 'N');
    gestion_radio connu = module(numero);
    connu.parent[0] = 'P';
    appli.ecrireModule(4, connu);
    appli.ecrireModule(7, module("12", 0));
    gestion_radio gr = {1,     {},         "fd00::1", "B",  "21.5:40", {},          3.25, 512.0,
                        -13.5, 0x0A0B0C0D, {},        87.5, 12.25,     0xF1020304u, -2};
    std::memcpy(gr.numero, numero.constData(), 50);
    fonctions_bases::setModule(gr);

    const QByteArray r = appli.octetsZoneHF().mid(4 * MODULE, MODULE);
    QCOMPARE(appli.octetsZoneHF().left(MODULE), QByteArray(MODULE, '\0'));
    QCOMPARE(r.left(VALEUR), '\x01' + numero + "fd00::1" + QByteArray(43, '\0') + "B" + '\0');
    QCOMPARE(r.mid(VALEUR, 50), "21.5:40" + QByteArray(43, '\0'));
    QCOMPARE(r.mid(PILE, 24), octets(3.25) + octets(512.0) + octets(-13.5));
    QCOMPARE(r.mid(NB_SAUTS, 4), QByteArray("\x0D\x0C\x0B\x0A"));
    QCOMPARE(r.mid(TAUX, 16), octets(87.5) + octets(12.25));
    QCOMPARE(r.mid(DATEHEURE, 8), QByteArray("\x04\x03\x02\xF1\xFE\xFF\xFF\xFF"));
    QCOMPARE(octets(fonctions_bases::getModule(QString::fromLatin1(numero))), r);
    // A removed module is not found: texts zero, numbers -1.
    const QByteArray m1 = octets(-1.0);
    QCOMPARE(octets(fonctions_bases::getModule(QStringLiteral("12"))),
             QByteArray(PILE, '\0') + m1 + m1 + QByteArray(8, '\0') + QByteArray(4, '\xFF') +
                 QByteArray(4, '\0') + m1 + m1 + QByteArray(8, '\xFF'));
}

void TestBaseRadio::ecriture_data()
{
    QTest::addColumn<bool>("taux");              // setModuleTaux, else setModule
    QTest::addColumn<QStringList>("occupation"); // "slot:present:numero"
    QTest::addColumn<int>("slot");

    QTest::newRow("table vide") << false << QStringList() << 0;
    QTest::newRow("module connu garde son slot") << false << QStringList{"0:1:1", "3:1:12"} << 3;
    QTest::newRow("module retire reecrit en place") << false << QStringList{"1:1:1", "5:0:12"} << 5;
    QTest::newRow("plus petit slot libre") << false << QStringList{"0:1:1", "1:0:2", "3:1:3"} << 2;
    QTest::newRow("prefixe d'une autre adresse") << false << QStringList{"0:1:123"} << 1;
    QStringList pleine;
    for (int i = 0; i < 100; ++i)
        pleine << QStringLiteral("%1:%2:m%1").arg(i).arg(i % 2);
    QTest::newRow("table pleine: abandon silencieux") << false << pleine << -1;
    QTest::newRow("taux: module present") << true << QStringList{"0:1:11", "4:1:12"} << 4;
    QTest::newRow("taux: module retire aussi") << true << QStringList{"2:0:12", "4:1:12"} << 2;
    QTest::newRow("taux: module inconnu") << true << QStringList{"0:1:11"} << -1;
}

void TestBaseRadio::ecriture()
{
    QFETCH(bool, taux);
    QFETCH(QStringList, occupation);
    QFETCH(int, slot);

    for (const QString &o : qAsConst(occupation))
        appli.ecrireModule(
            o.section(':', 0, 0).toInt(),
            module(o.section(':', 2).toLatin1(), char(o.section(':', 1, 1).toInt())));
    for (int i = 0; i < 100; ++i) // what a write must leave alone is recognisable
        std::memset(appli.donnees(QStringLiteral("Zone_HF")) + i * MODULE + PILE, 0x5A, 56);
    QByteArray attendu = appli.octetsZoneHF();
    const gestion_radio gr = module("12");
    CaptureLog capture;
    if (taux)
        fonctions_bases::setModuleTaux(QStringLiteral("12"), 96.5, 3.75);
    else
        fonctions_bases::setModule(gr);
    if (slot >= 0)
        attendu.replace(slot * MODULE + (taux ? TAUX : 0), taux ? 16 : MODULE,
                        taux ? octets(96.5) + octets(3.75) : octets(gr));
    QCOMPARE(appli.octetsZoneHF(), attendu);
    QCOMPARE(capture.lignes(), QStringList());
}

void TestBaseRadio::voiesRadio_data()
{
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<QList<int>>("voies");

    QTest::newRow("toutes les voies radio") << QString() << QList<int>{0, 1, 2, 5, 9, 64};
    QTest::newRow("un module") << "ABCDEFGH" << QList<int>{1, 9};
    QTest::newRow("adresse plus longue que 8") << "ABCDEFGH:1" << QList<int>();
}

void TestBaseRadio::voiesRadio()
{
    QFETCH(QString, adresse);
    QFETCH(QList<int>, voies);

    // "voie:type:adresse". Out: 3 too short, 4 not radio, 6 case, 7 and 8 off
    // the list, 10 "RADI" too short, 11 RADIO not leading.
    const QStringList config{"0:1:11111111", "1:1:ABCDEFGH:1:2", "2:2:IJKLMNOP",  "3:1:QRSTUVW",
                             "4:0:ABCDEFGH", "5:1:abcdefghij",   "6:3:ABCDEFGH",  "7:-1:ABCDEFGH",
                             "8:6:ABCDEFGH", "9:1:ABCDEFGH",     "10:4:ABCDEFGH", "11:5:ABCDEFGH",
                             "64:1:99999999"};
    for (const QString &v : config)
        appli.ecrireVoie(v.section(':', 0, 0).toInt(), v.section(':', 1, 1).toInt(),
                         v.section(':', 2).toLatin1(), v.section(':', 0, 0).toInt(), 0.0);
    const QStringList types{"ANALOGIQUE", "RADIO_TEMP", "RADIO_CONTACT",
                            "Radio_x",    "RADI",       "XRADIO"};
    const QList<La_config_voies> lues = fonctions_bases::getLesVoiesRadio(adresse, types);
    QList<int> numeros;
    for (const La_config_voies &voie : lues)
        numeros << voie.numero();
    QCOMPARE(numeros, voies);
}

void TestBaseRadio::essaisDeLaRequete_data()
{
    QTest::addColumn<int>("echecs");
    QTest::addColumn<bool>("resultat");
    QTest::addColumn<int>("essais");

    QTest::newRow("libre au quatrieme essai") << 3 << true << 4;
    QTest::newRow("libre au dixieme essai") << 9 << true << 10;
    QTest::newRow("jamais libre") << 10 << false << 10;
}

void TestBaseRadio::essaisDeLaRequete()
{
    QFETCH(int, echecs);
    QFETCH(bool, resultat);
    QFETCH(int, essais);

    fonctions_bases fb;
    QVERIFY(fb.ouvre_base());
    // The table appears after `echecs` failed attempts, as when the database is unlocked.
    QSqlQueryModel model;
    int n = 0;
    connect(&model, &QSqlQueryModel::modelReset, [&n, echecs] {
        if (++n == echecs)
            QSqlQuery(QSqlDatabase::database()).exec(QStringLiteral("create table t (x integer)"));
    });
    QCOMPARE(fb.execute_sql(&model, QStringLiteral("select * from t")), resultat);
    QCOMPARE(n, essais);
}

void TestBaseRadio::typesDeVoies()
{
    fonctions_bases fb;
    QVERIFY(fb.ouvre_base());
    QSqlQuery q;
    QVERIFY(q.exec("create table config_type_voie (nom varchar(100), numero integer)"));
    QVERIFY(q.exec("insert into config_type_voie values ('RADIO_CONTACT', 2), ('AUCUN', 0), "
                   "('l''entree', 3), ('Contact sec', 1), ('contacts', 5), ('CONTAC', 4)"));
    QCOMPARE(fb.retourne_type_voies(), QStringList({"AUCUN", "Contact sec", "RADIO_CONTACT",
                                                    "l'entree", "CONTAC", "contacts"}));
    QCOMPARE(fb.getLesTypesVoiesContact(), QList<int>({1, 2, 5}));
}

void TestBaseRadio::schemaEtSecondDemarrage()
{
    demarrer();
    QVERIFY(QFile::remove(fichier));
    serveur->creerBD();
    QCOMPARE(requete("select type || ' ' || name || ' ' || tbl_name from sqlite_master "
                     "order by type, name"),
             QStringList({"index dateheure mesures_hf", "index module modules",
                          "index module_dateheure mesures_hf", "index parent modules",
                          "table mesures_hf mesures_hf", "table mesures_taux mesures_taux",
                          "table modules modules"}));
    // rw for all: the main application opens the file under another user.
    QCOMPARE(QFile::permissions(fichier), QFile::Permissions(0x6666));

    // A second start keeps the file as it is, silently, and restores the mode.
    requete("insert into modules (module) values ('12')");
    const QByteArray avant = contenu(fichier);
    QVERIFY(QFile::setPermissions(fichier, QFile::ReadOwner | QFile::WriteOwner));
    serveur->setLog();
    CaptureLog capture;
    serveur->creerBD();
    QCOMPARE(capture.lignes(), QStringList());
    QCOMPARE(contenu(fichier), avant);
    QCOMPARE(QFile::permissions(fichier), QFile::Permissions(0x6666));
}

void TestBaseRadio::setModuleBD()
{
    demarrer();
    requete("insert into modules (module, date_changement_pile) values ('12', -1), ('13', -1), "
            "('x''y', -1), ('', -1)");
    serveur->setModuleBD("12", 5, true);           // update
    serveur->setModuleBD("x'y", 5, false);         // delete
    serveur->setModuleBD("", 5, false);            // free slot: nothing
    serveur->setModuleBD("' or '1'='1", 5, false); // an address, not SQL
    QCOMPARE(requete("select module || '|' || date_changement_pile from modules order by 1"),
             QStringList({"12|5", "13|-1", "|-1"}));
}

void TestBaseRadio::purgesALaSeconde()
{
    demarrer();
    // Rows and frames 3600, 3601, 1296000 and 1296001 s old once the clock has
    // moved on; frames are kept in arrival order, which need not be time order.
    const QStringList tables{"modules:date_dernier_acces", "mesures_hf:dateheure_mesure_hf",
                             "mesures_taux:dateheure_mesure_taux"};
    for (const int age : {3600, 1296001, 3601, 1296000}) {
        for (const QString &table : tables)
            requete(QStringLiteral("insert into %1 (module, %2) values ('%3', %4)")
                        .arg(table.section(':', 0, 0), table.section(':', 1))
                        .arg(age)
                        .arg(MAINTENANT + 100 - age));
        trames({QStringLiteral("%1:%2:P:0").arg(age - 100).arg(age)});
    }
    Horloge::avancer(100);
    serveur->enregistrerMesuresHf = false;
    serveur->supprimerAnciensModules();
    serveur->supprimerAnciennesMesures();
    serveur->supprimerAnciensTaux();
    serveur->supprimerAnciennesInfosTrames();
    const QStringList tous{"1296000", "1296001", "3600", "3601"};
    const QStringList quinzeJours{"1296000", "3600", "3601"};
    QCOMPARE(requete("select module from modules order by 1"), tous);    // off by default
    QCOMPARE(requete("select module from mesures_hf order by 1"), tous); // not recorded
    QCOMPARE(requete("select module from mesures_taux order by 1"), quinzeJours);
    QCOMPARE(serveur->copieInfosTrame().size(), 1);
    QCOMPARE(serveur->copieInfosTrame().at(0).module, QStringLiteral("3600"));
    serveur->enregistrerMesuresHf = true;
    serveur->supprimerAnciennesMesures();
    QCOMPARE(requete("select module from mesures_hf order by 1"), quinzeJours);
}

void TestBaseRadio::taux_data()
{
    QTest::addColumn<QStringList>("trames");
    QTest::addColumn<double>("reception");
    QTest::addColumn<double>("utilisation");

    // Module 12 is present; 13 was removed.
    QTest::newRow("une seule trame") << QStringList{"10:12:P:5"} << -1.0 << -1.0;
    QTest::newRow("aucune trame du module")
        << QStringList{"10:13:P:5", "5:123:P:5"} << -1.0 << -1.0;
    QTest::newRow("toutes les 45 s, autres modules intercales")
        << QStringList{"90:12:P:0", "60:13:Q:40", "45:12:P:0", "30:15:R:40", "0:12:P:0"} << 100.0
        << 0.0;
    QTest::newRow("63 s: a l'heure") << QStringList{"63:12:P:0", "0:12:P:0"} << 100.0 << 0.0;
    QTest::newRow("64 s: une trame perdue") << QStringList{"64:12:P:0", "0:12:P:0"} << 0.0 << 100.0;
    QTest::newRow("90 s: deux perdues, deux a l'heure")
        << QStringList{"180:12:P:0", "135:12:P:0", "45:12:P:0", "0:12:P:0"} << 50.0 << 50.0;
    QTest::newRow("changement de parent et rank 13")
        << QStringList{"45:12:A:13", "0:12:B:13"} << 100.0 << 100.0 - 100.0 / 2.2;
}

void TestBaseRadio::taux()
{
    QFETCH(QStringList, trames);
    QFETCH(double, reception);
    QFETCH(double, utilisation);

    demarrer();
    appli.ecrireModule(1, module("13", 0));
    appli.ecrireModule(3, module("12"));
    const QByteArray avant = appli.octetsZoneHF();
    this->trames(trames);
    serveur->calculerTauxInfosTrames();
    const gestion_radio gr = fonctions_bases::getModule(QStringLiteral("12"));
    QCOMPARE(qMakePair(gr.taux_reception, gr.taux_utilisation), qMakePair(reception, utilisation));
    QCOMPARE(appli.octetsZoneHF().left(3 * MODULE), avant.left(3 * MODULE)); // 13 keeps its rates
    serveur->enregistrerTaux(); // the hourly record, of present modules only
    const QString sql = QStringLiteral("select module || ' ' || dateheure_mesure_taux || ' ' || "
                                       "(abs(taux_reception - %1) + abs(taux_utilisation - %2) "
                                       "< 1e-3) from mesures_taux");
    QCOMPARE(requete(sql.arg(reception).arg(utilisation)), QStringList{"12 1700000000 1"});
}

QTEST_GUILESS_MAIN(TestBaseRadio)
#include "tst_baseradio.moc"
