// The module update: the radio database rows, the module tree (hops and rank
// step), the frame history and the record written into "Zone_HF".

#include "aide_reception.h"
#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"

#include <QtTest>

#include <cstring>
#include <memory>

using namespace AideReception;

class TestModule : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void premiereTrameInsereLaSuivanteMetAJour();
    void miseAJourAvecColonneAlim();
    void enregistrementDesMesuresCoupe();
    void arbreATroisNiveaux();
    void pasDeRangSelonLeParentDeLaTrame();
    void moduleAbsentDeLaTable();
    void borneDesNiveaux_data();
    void borneDesNiveaux();
    void boucleDansLesParents();
    void valeurCoupeeDansLaTableSeulement();
    void adresseCoupeeA50Octets();
    void texteSqlStockeTelQuel_data();
    void texteSqlStockeTelQuel();

private:
    QString base() const { return bac.chemin(QStringLiteral("/var/base/hf.db")); }
    QByteArray zone() const { return doublure.octetsZoneHF(); }
    void trame(const QByteArray &texte) { serveur->traiterDatagram(texte); }
    // A record written by the main application itself, for trees that frames
    // alone cannot build.
    void ecrireSlot(int slot, const QByteArray &numero, const QByteArray &parent, double rank);

    const QDateTime instant{QDate(2026, 11, 15), QTime(12, 38, 33)};
    BacASable bac;
    DoublureApplication doublure;
    std::unique_ptr<QServeurUdp> serveur;
    std::unique_ptr<CaptureLog> capture;
};

void TestModule::initTestCase()
{
    QVERIFY(bac.estValide());
    Horloge::figer(instant);
    bac.activer(0);
    QString erreur;
    QVERIFY2(doublure.creerZones(&erreur), qPrintable(erreur));
    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    capture = std::make_unique<CaptureLog>();
}

void TestModule::init()
{
    Horloge::figer(instant);
    // Each case starts from a new database and an empty table.
    QVERIFY(QFile::remove(base()));
    serveur->creerBD();
    serveur->enregistrerMesures = true;
    std::memset(doublure.donnees(QStringLiteral("Zone_HF")), 0, 21600);
    capture->vider();
}

void TestModule::cleanupTestCase()
{
    capture.reset();
    serveur.reset();
    Horloge::liberer();
}

void TestModule::ecrireSlot(int slot, const QByteArray &numero, const QByteArray &parent,
                            double rank)
{
    gestion_radio gr;
    std::memset(&gr, 0, sizeof gr);
    gr.present = 1;
    std::memcpy(gr.numero, numero.constData(), static_cast<size_t>(numero.size()));
    std::memcpy(gr.parent, parent.constData(), static_cast<size_t>(parent.size()));
    gr.rank = rank;
    doublure.ecrireModule(slot, gr);
}

void TestModule::premiereTrameInsereLaSuivanteMetAJour()
{
    trame("E12:3:20:201:455:33:1");
    QCOMPARE(capture->compter(QStringLiteral("Erreur")), 0);
    QCOMPARE(
        lignes(base(), QStringLiteral("select module, parent, type, rank, date_dernier_acces, "
                                      "batterie, valeur, date_changement_pile from modules")),
        (QList<QVariantList>{{QStringLiteral("12"), QStringLiteral("3"), QStringLiteral("E"), 2.0,
                              instant.toSecsSinceEpoch(), 3.3, QStringLiteral("20.1:45.5"), -1}}));

    // The file made at start-up lacks the `alim` column that the update
    // writes: the update fails and says so, the rest goes on.
    Horloge::avancer(45);
    trame("E12:4:30:202:456:32:0");
    const QStringList erreurs = capture->contenant(QStringLiteral("Erreur update modules : "));
    QCOMPARE(erreurs.size(), 1);
    QVERIFY2(erreurs.first().contains(
                 QRegularExpression(QStringLiteral("Erreur update modules : \\d+  : .*alim"))),
             qPrintable(erreurs.first()));
    QCOMPARE(lignes(base(), QStringLiteral("select parent, date_dernier_acces from modules")),
             (QList<QVariantList>{{QStringLiteral("3"), instant.toSecsSinceEpoch()}}));
    QCOMPARE(
        lignes(base(), QStringLiteral("select module, dateheure_mesure_hf, parent, rank, "
                                      "batterie, valeur, alim from mesures_hf order by "
                                      "dateheure_mesure_hf")),
        (QList<QVariantList>{{QStringLiteral("12"), instant.toSecsSinceEpoch(), QStringLiteral("3"),
                              2.0, 3.3, QStringLiteral("20.1:45.5"), 1},
                             {QStringLiteral("12"), instant.toSecsSinceEpoch() + 45,
                              QStringLiteral("4"), 3.0, 3.2, QStringLiteral("20.2:45.6"), 0}}));
    const int slot = slotDe(zone(), "12");
    QVERIFY(slot >= 0);
    QCOMPARE(texte(zone(), slot, OFFSET_PARENT, 50), QByteArray("4"));
}

void TestModule::miseAJourAvecColonneAlim()
{
    QVERIFY(executer(base(), QStringLiteral("alter table modules add column alim integer")));
    trame("A12:3:20:201:33");
    Horloge::avancer(45);
    trame("E12:4:30:202:456:32:1");
    QCOMPARE(capture->compter(QStringLiteral("Erreur")), 0);
    QCOMPARE(lignes(base(), QStringLiteral("select parent, type, rank, date_dernier_acces, "
                                           "batterie, valeur, alim, date_changement_pile from "
                                           "modules")),
             (QList<QVariantList>{{QStringLiteral("4"), QStringLiteral("E"), 3.0,
                                   instant.toSecsSinceEpoch() + 45, 3.2,
                                   QStringLiteral("20.2:45.6"), 1, -1}}));
}

void TestModule::enregistrementDesMesuresCoupe()
{
    serveur->enregistrerMesures = false;
    trame("A12:3:20:201:33");
    QCOMPARE(lignes(base(), QStringLiteral("select count(*) from mesures_hf")),
             (QList<QVariantList>{{0}}));
    QCOMPARE(lignes(base(), QStringLiteral("select count(*) from modules")),
             (QList<QVariantList>{{1}}));
    QVERIFY(slotDe(zone(), "12") >= 0);
    QCOMPARE(serveur->copieInfosTrame().last().module, QStringLiteral("12"));
}

void TestModule::arbreATroisNiveaux()
{
    // r hangs under the appliance (its parent is not a module), m under r,
    // f under m. Each module's first frame finds it absent from the table.
    const QList<QByteArray> tour = {"A100:br:3000:1", "A200:100:4200:1", "A300:200:5000:1"};
    for (const QByteArray &t : tour)
        trame(t);
    const QList<QServeurUdp::_info_trame> premiers =
        serveur->copieInfosTrame().mid(serveur->copieInfosTrame().size() - 3);
    for (const QServeurUdp::_info_trame &info : premiers) {
        QCOMPARE(info.current_rank, -14.0);
        QCOMPARE(info.donnee_entiere, -1);
    }
    QCOMPARE(nombre<qint32>(zone(), slotDe(zone(), "300"), OFFSET_NB_SAUTS), -1);

    Horloge::avancer(45);
    for (const QByteArray &t : tour)
        trame(t);

    struct Attendu
    {
        QByteArray numero;
        qint32 nb_sauts;
        double current_rank;
        int enfants;
    };
    const QList<Attendu> attendus = {
        {"100", 1, 300 - 13, 1}, {"200", 2, 420 - 300, 1}, {"300", 3, 500 - 420, 0}};
    const QByteArray z = zone();
    const QList<QServeurUdp::_info_trame> infos = serveur->copieInfosTrame();
    for (int i = 0; i < attendus.size(); ++i) {
        const Attendu &a = attendus.at(i);
        const int slot = slotDe(z, a.numero);
        QVERIFY2(slot >= 0, a.numero.constData());
        QCOMPARE(slot, i);
        QCOMPARE(z.at(slot * TAILLE_SLOT + OFFSET_PRESENT), '\1');
        QCOMPARE(nombre<qint32>(z, slot, OFFSET_NB_SAUTS), a.nb_sauts);
        QCOMPARE(nombre<double>(z, slot, OFFSET_CURRENT_RANK), a.current_rank);
        const QServeurUdp::_info_trame &info = infos.at(infos.size() - 3 + i);
        QCOMPARE(info.module, QString::fromLatin1(a.numero));
        QCOMPARE(info.dateheure, instant.addSecs(45));
        QCOMPARE(info.current_rank, a.current_rank);
        QCOMPARE(info.donnee_entiere, a.enfants);
    }
    QCOMPARE(nombre<double>(z, 2, OFFSET_RANK), 500.0);
    QCOMPARE(nombre<double>(z, 2, OFFSET_PILE), 0.0);
    QCOMPARE(nombre<quint32>(z, 2, OFFSET_DATEHEURE),
             static_cast<quint32>(instant.toSecsSinceEpoch() + 45));
    QCOMPARE(texte(z, 2, OFFSET_TYPE, 2), QByteArray("A"));
    QCOMPARE(texte(z, 2, OFFSET_VALEUR, 50), QByteArray("0.1"));
    // A new module keeps the main application's "no battery change yet".
    QCOMPARE(nombre<qint32>(z, 2, OFFSET_DATE_CHANGEMENT_PILE), -1);
    QCOMPARE(capture->compter(QStringLiteral("Calcul des rangs")), 0);
}

void TestModule::pasDeRangSelonLeParentDeLaTrame()
{
    ecrireSlot(0, "100", "br", 300);
    ecrireSlot(1, "200", "100", 420);
    ecrireSlot(2, "300", "200", 500);
    // The depth comes from the table; the step from the parent the frame names.
    trame("A300:100:5100:1");
    QCOMPARE(nombre<qint32>(zone(), 2, OFFSET_NB_SAUTS), 3);
    QCOMPARE(nombre<double>(zone(), 2, OFFSET_CURRENT_RANK), 500.0 - 300.0);
    trame("A300:inconnu:5100:1");
    QCOMPARE(nombre<qint32>(zone(), 2, OFFSET_NB_SAUTS), 2);
    QCOMPARE(nombre<double>(zone(), 2, OFFSET_CURRENT_RANK), 510.0);
}

void TestModule::moduleAbsentDeLaTable()
{
    // A module the main application set aside (present 0) is not in the tree
    // but gets its slot back.
    ecrireSlot(4, "77", "br", 300);
    QByteArray octets = zone();
    doublure.donnees(QStringLiteral("Zone_HF"))[4 * TAILLE_SLOT + OFFSET_PRESENT] = 0;
    trame("A77:br:3100:5");
    const QServeurUdp::_info_trame info = serveur->copieInfosTrame().last();
    QCOMPARE(info.current_rank, -14.0);
    QCOMPARE(info.donnee_entiere, -1);
    octets = zone();
    QCOMPARE(slotDe(octets, "77"), 4);
    QCOMPARE(octets.at(4 * TAILLE_SLOT + OFFSET_PRESENT), '\1');
    QCOMPARE(nombre<qint32>(octets, 4, OFFSET_NB_SAUTS), -1);
    QCOMPARE(nombre<double>(octets, 4, OFFSET_CURRENT_RANK), -14.0);
}

void TestModule::borneDesNiveaux_data()
{
    QTest::addColumn<int>("longueur");
    QTest::addColumn<bool>("borne");
    QTest::addColumn<int>("profondeurDernier");

    // Level 0 is the appliance: nineteen levels of modules fit below it.
    QTest::newRow("chain of 18") << 18 << false << 18;
    QTest::newRow("chain of 19") << 19 << true << 19;
    QTest::newRow("chain of 25") << 25 << true << -1;
}

void TestModule::borneDesNiveaux()
{
    QFETCH(int, longueur);
    QFETCH(bool, borne);
    QFETCH(int, profondeurDernier);

    for (int i = 1; i <= longueur; ++i)
        ecrireSlot(i - 1, "c" + QByteArray::number(i), "c" + QByteArray::number(i - 1), 100 * i);
    const QByteArray dernier = "c" + QByteArray::number(longueur);
    trame("A" + dernier + ":c" + QByteArray::number(longueur - 1) + ":0:1");

    const QStringList messages = capture->contenant(QStringLiteral("Calcul des rangs"));
    QCOMPARE(messages.size(), borne ? 1 : 0);
    if (borne)
        QVERIFY(messages.first().endsWith(QStringLiteral("setModule : Calcul des rangs : i = 20")));
    QCOMPARE(nombre<qint32>(zone(), longueur - 1, OFFSET_NB_SAUTS), profondeurDernier);
}

void TestModule::boucleDansLesParents()
{
    // Two records of the same address, one under r and one under b, while b
    // hangs under that address: a loop that only the level bound ends.
    ecrireSlot(0, "r", "br", 100);
    ecrireSlot(1, "a", "r", 200);
    ecrireSlot(2, "b", "a", 300);
    ecrireSlot(3, "a", "b", 400);
    trame("Ab:a:3000:1");
    QCOMPARE(capture->contenant(QStringLiteral("setModule : Calcul des rangs : i = 20")).size(), 1);
    QCOMPARE(nombre<qint32>(zone(), 2, OFFSET_NB_SAUTS), 3);
    QCOMPARE(nombre<double>(zone(), 2, OFFSET_CURRENT_RANK), 100.0);
}

void TestModule::valeurCoupeeDansLaTableSeulement()
{
    // 60 bytes of UTF-8: the cut at 49 falls inside a character.
    const QString valeur = QString(30, QChar(0xe9));
    serveur->setModule(instant, QStringLiteral("55"), QStringLiteral("1"), QStringLiteral("A"), 2,
                       3.5, valeur, 0);
    const int slot = slotDe(zone(), "55");
    QVERIFY(slot >= 0);
    const QByteArray champ = zone().mid(slot * TAILLE_SLOT + OFFSET_VALEUR, 50);
    QCOMPARE(champ.left(49), valeur.toUtf8().left(49));
    QCOMPARE(champ.at(49), '\0');
    QVERIFY(capture->contenant(QStringLiteral("memset(gr.valeur, 0, 50)")).size() == 1);
    QVERIFY(capture->contenant(QStringLiteral("strncpy(gr.valeur, valeur.toUtf8().data(), 49)"))
                .size() == 1);
    QCOMPARE(lignes(base(), QStringLiteral("select valeur from mesures_hf")),
             (QList<QVariantList>{{valeur}}));
    // modules.valeur is declared double: SQLite keeps text that is no number.
    QCOMPARE(lignes(base(), QStringLiteral("select valeur from modules")),
             (QList<QVariantList>{{valeur}}));
}

void TestModule::adresseCoupeeA50Octets()
{
    const QByteArray longue(60, 'x');
    trame("A" + longue + ":" + QByteArray(55, 'p') + ":20:5");
    const QByteArray z = zone();
    // Both fields full, with no NUL: the parent field starts right after.
    QCOMPARE(z.mid(OFFSET_NUMERO, 50), QByteArray(50, 'x'));
    QCOMPARE(z.mid(OFFSET_PARENT, 50), QByteArray(50, 'p'));
    QCOMPARE(z.at(OFFSET_TYPE), 'A');
    QCOMPARE(lignes(base(), QStringLiteral("select module from modules")),
             (QList<QVariantList>{{QString::fromLatin1(longue)}}));
}

void TestModule::texteSqlStockeTelQuel_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("parent");
    QTest::addColumn<QString>("valeur");

    // clang-format off
    QTest::newRow("quote in the address")          << "o'neil"           << "1"                             << "1";
    QTest::newRow("statement widening the update") << "z' or module<>'z" << "x', rank=99, parent='x"        << "2";
    QTest::newRow("statement in the parent")       << "p1"               << "1'); delete from modules; --" << "3";
    QTest::newRow("placeholders")                  << "%1%8"             << "%2"                            << "%7'%6";
    QTest::newRow("quote only")                    << "'"                << "''"                            << "'";
    // clang-format on
}

void TestModule::texteSqlStockeTelQuel()
{
    QFETCH(QString, module);
    QFETCH(QString, parent);
    QFETCH(QString, valeur);

    // With the column the update writes, so that both statements succeed.
    QVERIFY(executer(base(), QStringLiteral("alter table modules add column alim integer")));
    QVERIFY(executer(base(), QStringLiteral("insert into modules (module, parent, rank, valeur) "
                                            "values ('autre', 'racine', 7, '8')")));
    for (int passage = 0; passage < 2; ++passage) {
        serveur->setModule(instant.addSecs(passage), module, parent, QStringLiteral("A"), 4, 3.5,
                           valeur, 1);
        Horloge::avancer(1);
    }
    QCOMPARE(capture->compter(QStringLiteral("Erreur")), 0);
    QCOMPARE(lignes(base(), QStringLiteral("select module, parent, rank, valeur from modules "
                                           "order by module = 'autre'")),
             (QList<QVariantList>{
                 {module, parent, 4.0, valeur},
                 {QStringLiteral("autre"), QStringLiteral("racine"), 7.0, QStringLiteral("8")}}));
    QCOMPARE(lignes(base(), QStringLiteral("select module, parent, valeur from mesures_hf")),
             (QList<QVariantList>{{module, parent, valeur}, {module, parent, valeur}}));
    QCOMPARE(texte(zone(), 0, OFFSET_NUMERO, 50), module.toUtf8());
    QCOMPARE(texte(zone(), 0, OFFSET_PARENT, 50), parent.toUtf8());
}

QTEST_GUILESS_MAIN(TestModule)
#include "tst_module.moc"
