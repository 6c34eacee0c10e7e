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

// "Zone_HF", the device and radio databases, rates and purges. "Zone_HF" is read
// as raw bytes at the agreed offsets: a layout fault shows even when both sides agree.
namespace {

enum Octet { MODULE = 216, VALEUR = 103, PILE = 160, NB_SAUTS = 184, TAUX = 192, DATEHEURE = 208 };
const quint32 MAINTENANT = 1700000000u;

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

} // namespace

class TestBaseRadio : public QObject
{
    Q_OBJECT
    BacASable bac;
    const QString fichier = bac.chemin("/var/base/hf.db");
    DoublureApplication appli;
    std::unique_ptr<QServeurUdp> serveur;

    // The first column of each row of the radio database.
    QStringList requete(const QString &sql) const
    {
        QStringList lignes;
        for (QSqlQuery q(sql, QSqlDatabase::database("test")); q.next();)
            lignes << q.value(0).toString();
        return lignes;
    }
    // Slots of "Zone_HF" as "slot:present:numero".
    void occuper(const QStringList &occupation)
    {
        for (const QString &o : occupation)
            appli.ecrireModule(
                o.section(':', 0, 0).toInt(),
                module(o.section(':', 2).toLatin1(), char(o.section(':', 1, 1).toInt())));
    }
    // Frames as "age:module:parent[:current_rank]", in arrival order.
    void trames(const QStringList &trames)
    {
        for (const QString &t : trames)
            serveur->ajouterInfoTrame(QServeurUdp::_info_trame(
                QDateTime::fromSecsSinceEpoch(MAINTENANT - t.section(':', 0, 0).toInt()),
                t.section(':', 1, 1), t.section(':', 3).toDouble(), t.section(':', 2, 2), -1));
    }

private slots:
    // One set of segments for the run: each one made may meet a stale one's key.
    void initTestCase()
    {
        bac.activer();
        QVERIFY(appli.creerZones());
    }
    void init()
    {
        serveur.reset();
        for (const QString &nom : QSqlDatabase::connectionNames()) // Qt keeps them process-wide
            QSqlDatabase::removeDatabase(nom);
        QFile::remove(fichier);
        QFile::remove(bac.chemin("/var/base/itessalin.db"));
        for (const QString &cle : DoublureApplication::cles())
            std::memset(appli.donnees(cle), 0, size_t(DoublureApplication::tailleZone(cle)));
        Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT));
        serveur = std::make_unique<QServeurUdp>();
        Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT)); // the tunnel restart moved it
        QSqlDatabase::addDatabase("QSQLITE", "test").setDatabaseName(fichier);
    }

    void champsAuxOctetsConvenus()
    {
        occuper({"0:1:11", "2:0:12"}); // slot 1 is the first free one
        const gestion_radio gr = {1,  "0013", "fd00::1", "B",         "21.5:40",
                                  {}, 3.25,   512.0,     -13.5,       0x0A0B0C0D,
                                  {}, 87.5,   12.25,     0xF1020304u, -2};
        fonctions_bases::setModule(gr);
        const QByteArray r = appli.octetsZoneHF().mid(MODULE, MODULE);
        const QByteArray texte = "0013" + QByteArray(46, '\0') + "fd00::1" + QByteArray(43, '\0');
        QCOMPARE(r.left(VALEUR), '\x01' + texte + "B" + '\0');
        QCOMPARE(r.mid(VALEUR, 50), "21.5:40" + QByteArray(43, '\0'));
        QCOMPARE(r.mid(PILE, 24), octets(3.25) + octets(512.0) + octets(-13.5));
        QCOMPARE(r.mid(NB_SAUTS, 4), QByteArray("\x0D\x0C\x0B\x0A"));
        QCOMPARE(r.mid(TAUX, 16), octets(87.5) + octets(12.25));
        QCOMPARE(r.mid(DATEHEURE, 8), QByteArray("\x04\x03\x02\xF1\xFE\xFF\xFF\xFF"));
        QCOMPARE(octets(fonctions_bases::getModule("0013")), r);
        // A removed module is not found: texts zero, numbers -1.
        const QByteArray m1 = octets(-1.0);
        QCOMPARE(octets(fonctions_bases::getModule("12")),
                 QByteArray(PILE, '\0') + m1 + m1 + QByteArray(8, '\0') + QByteArray(4, '\xFF') +
                     QByteArray(4, '\0') + m1 + m1 + QByteArray(8, '\xFF'));
    }

    void ecriture_data()
    {
        QTest::addColumn<bool>("taux");              // setModuleTaux, else setModule
        QTest::addColumn<QStringList>("occupation"); // "slot:present:numero"
        QTest::addColumn<int>("slot");
        QStringList pleine;
        for (int i = 0; i < 100; ++i)
            pleine << QStringLiteral("%1:%2:m%1").arg(i).arg(i % 2);
        // clang-format off
        QTest::newRow("module connu, son slot") << false << QStringList{"0:1:1", "3:1:12"} << 3;
        QTest::newRow("module retire, en place") << false << QStringList{"1:1:1", "5:0:12"} << 5;
        QTest::newRow("prefixe d'une autre adresse") << false << QStringList{"0:1:123"} << 1;
        QTest::newRow("table pleine: abandon silencieux") << false << pleine << -1;
        QTest::newRow("taux: module retire aussi") << true << QStringList{"2:0:12", "4:1:12"} << 2;
        QTest::newRow("taux: module inconnu") << true << QStringList{"0:1:11"} << -1;
        // clang-format on
    }
    void ecriture()
    {
        QFETCH(bool, taux);
        QFETCH(QStringList, occupation);
        QFETCH(int, slot);
        occuper(occupation);
        for (int i = 0; i < 100; ++i) // what a write must leave alone is recognisable
            std::memset(appli.donnees("Zone_HF") + i * MODULE + PILE, 0x5A, 56);
        QByteArray attendu = appli.octetsZoneHF();
        const gestion_radio gr = module("12");
        CaptureLog capture;
        if (taux)
            fonctions_bases::setModuleTaux("12", 96.5, 3.75);
        else
            fonctions_bases::setModule(gr);
        if (slot >= 0)
            attendu.replace(slot * MODULE + (taux ? TAUX : 0), taux ? 16 : MODULE,
                            taux ? octets(96.5) + octets(3.75) : octets(gr));
        QCOMPARE(appli.octetsZoneHF(), attendu);
        QCOMPARE(capture.lignes(), QStringList());
    }

    void voiesRadio()
    {
        // "voie:type:adresse". Out: 3 too short, 4 not radio, 6 case, 7 and 8 off
        // the list, 10 "RADI" too short, 11 RADIO not leading.
        const QStringList config{
            "0:1:11111111",   "1:1:ABCDEFGH:1:2", "2:2:IJKLMNOP",  "3:1:QRSTUVW",  "4:0:ABCDEFGH",
            "5:1:abcdefghij", "6:3:ABCDEFGH",     "7:-1:ABCDEFGH", "8:6:ABCDEFGH", "9:1:ABCDEFGH",
            "10:4:ABCDEFGH",  "11:5:ABCDEFGH",    "64:1:99999999"};
        for (const QString &v : config)
            appli.ecrireVoie(v.section(':', 0, 0).toInt(), v.section(':', 1, 1).toInt(),
                             v.section(':', 2).toLatin1(), v.section(':', 0, 0).toInt(), 0.0);
        const auto voies = [](const QString &adresse) {
            const QStringList types{"ANALOGIQUE", "RADIO_TEMP", "RADIO_CONTACT",
                                    "Radio_x",    "RADI",       "XRADIO"};
            QList<int> numeros;
            for (const La_config_voies &voie : fonctions_bases::getLesVoiesRadio(adresse, types))
                numeros << voie.numero();
            return numeros;
        };
        QCOMPARE(voies(""), QList<int>({0, 1, 2, 5, 9, 64}));
        QCOMPARE(voies("ABCDEFGH"), QList<int>({1, 9}));
        QCOMPARE(voies("ABCDEFGH:1"), QList<int>()); // longer than the 8 characters compared
    }

    void typesDeVoies_data()
    {
        QTest::addColumn<int>("echecs"); // attempts made before the table shows up
        QTest::addColumn<bool>("resultat");
        QTest::newRow("libre au dixieme essai") << 9 << true;
        QTest::newRow("jamais libre") << 10 << false;
    }
    // Types in number order, the contact ones by name. The main application may
    // hold the database locked: each request is tried ten times.
    void typesDeVoies()
    {
        QFETCH(int, echecs);
        fonctions_bases fb;
        QVERIFY(fb.ouvre_base());
        QSqlQueryModel model;
        int n = 0;
        connect(&model, &QSqlQueryModel::modelReset, [&n, echecs] {
            QSqlQuery q;
            if (++n == echecs && q.exec("create table config_type_voie (nom text, numero integer)"))
                q.exec("insert into config_type_voie values ('RADIO_CONTACT', 2), ('AUCUN', 0), "
                       "('l''entree', 3), ('Contact sec', 1), ('contacts', 5), ('CONTAC', 4)");
        });
        QTEST(fb.execute_sql(&model, "select * from config_type_voie"), "resultat");
        QCOMPARE(n, 10);
        QCOMPARE(fb.retourne_type_voies(), QStringList({"AUCUN", "Contact sec", "RADIO_CONTACT",
                                                        "l'entree", "CONTAC", "contacts"}));
        QCOMPARE(fb.getLesTypesVoiesContact(), QList<int>({1, 2, 5}));
    }

    // Made rw for all: the main application opens it under another user. A
    // second start keeps it as it is, silently, and restores the mode.
    void schemaEtSecondDemarrage()
    {
        QVERIFY(QFile::remove(fichier));
        serveur->creerBD();
        QCOMPARE(requete("select type || ' ' || name || ' ' || tbl_name from sqlite_master "
                         "order by type, name"),
                 QStringList({"index dateheure mesures_hf", "index module modules",
                              "index module_dateheure mesures_hf", "index parent modules",
                              "table mesures_hf mesures_hf", "table mesures_taux mesures_taux",
                              "table modules modules"}));
        QCOMPARE(QFile::permissions(fichier), QFile::Permissions(0x6666));
        requete("insert into modules (module, date_changement_pile) values ('12', -1), ('13', -1), "
                "('x''y', -1), ('', -1)");
        QVERIFY(QFile::setPermissions(fichier, QFile::ReadOwner | QFile::WriteOwner));
        serveur->setLog();
        CaptureLog capture;
        serveur->creerBD();
        QCOMPARE(capture.lignes(), QStringList());
        QCOMPARE(QFile::permissions(fichier), QFile::Permissions(0x6666));
        // The battery dates saved on request, addresses taken as text.
        serveur->setModuleBD("12", 5, true);           // update
        serveur->setModuleBD("x'y", 5, false);         // delete
        serveur->setModuleBD("", 5, false);            // free slot: nothing
        serveur->setModuleBD("' or '1'='1", 5, false); // an address, not SQL
        QCOMPARE(requete("select module || '|' || date_changement_pile from modules order by 1"),
                 QStringList({"12|5", "13|-1", "|-1"}));
    }

    void purgesALaSeconde()
    {
        // Rows and frames that age, in an arrival order that is not time order.
        for (const int age : {3600, 1296001, 3601, 1296000}) {
            const QString v = QString(" values ('%1', %2)").arg(age).arg(MAINTENANT + 100 - age);
            requete("insert into modules (module, date_dernier_acces)" + v);
            requete("insert into mesures_hf (module, dateheure_mesure_hf)" + v);
            requete("insert into mesures_taux (module, dateheure_mesure_taux)" + v);
            trames({QString("%1:%2:P:0").arg(age - 100).arg(age)});
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

    void taux_data()
    {
        QTest::addColumn<QStringList>("trames");
        QTest::addColumn<double>("reception");
        QTest::addColumn<double>("utilisation");
        // Module 12 is present; 13 was removed; 15 and 123 are unknown.
        // clang-format off
        QTest::newRow("1 trame") << QStringList{"10:15:P", "5:123:P", "3:12:P"} << -1.0 << -1.0;
        QTest::newRow("63 s") << QStringList{"63:12:P", "30:13:Q", "0:12:P"} << 100.0 << 0.0;
        QTest::newRow("64 s") << QStringList{"64:12:P", "0:12:P"} << 0.0 << 100.0;
        QTest::newRow("90 s: deux perdues, deux a l'heure")
            << QStringList{"180:12:P", "135:12:P", "45:12:P", "0:12:P"} << 50.0 << 50.0;
        QTest::newRow("parent change, rank 13") << QStringList{"45:12:A:13", "0:12:B:13"} << 100.0
                                                << 100.0 - 100.0 / 2.2;
        // clang-format on
    }
    void taux()
    {
        QFETCH(QStringList, trames);
        QFETCH(double, reception);
        QFETCH(double, utilisation);
        occuper({"1:0:13", "3:1:12"});
        QByteArray attendu = appli.octetsZoneHF(); // 13, removed, keeps its rates
        attendu.replace(3 * MODULE + TAUX, 16, octets(reception) + octets(utilisation));
        this->trames(trames);
        serveur->calculerTauxInfosTrames();
        QCOMPARE(appli.octetsZoneHF(), attendu);
        serveur->enregistrerTaux(); // the hourly record, of present modules only
        const QString sql = "select module || ' ' || dateheure_mesure_taux || ' ' || "
                            "(abs(taux_reception - %1) + abs(taux_utilisation - %2) < 1e-3) "
                            "from mesures_taux";
        QCOMPARE(requete(sql.arg(reception).arg(utilisation)), QStringList{"12 1700000000 1"});
    }
};

QTEST_GUILESS_MAIN(TestBaseRadio)
#include "tst_baseradio.moc"
