#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "radio/fonctions_bases.h"

#include <QtTest>

#include <cstdlib>
#include <cstring>
#include <memory>

// The module table "Zone_HF" as the main application sees it: every check
// reads the segment's bytes at the offsets the two processes agree on, so a
// wrong layout shows even if reader and writer agree with each other.
namespace Octets {
const int MODULE = 216;
const int PRESENT = 0;
const int NUMERO = 1;
const int PARENT = 51;
const int TYPE = 101;
const int VALEUR = 103;
const int PILE = 160;
const int RANK = 168;
const int CURRENT_RANK = 176;
const int NB_SAUTS = 184;
const int TAUX_RECEPTION = 192;
const int TAUX_UTILISATION = 200;
const int DATEHEURE_MESURE = 208;
const int DATE_CHANGEMENT_PILE = 212;
} // namespace Octets

class TestZoneHF : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void setModuleEcritChaqueChamp();
    void choixDuSlot_data();
    void choixDuSlot();
    void tauxEcritsSeulsEnPlace_data();
    void tauxEcritsSeulsEnPlace();
    void getModule_data();
    void getModule();
    void moduleNonTrouve();
    void copieDeLaTable();
    void zonesAbsentes();
    void voiesRadio_data();
    void voiesRadio();
    void champsSansNulLusSurLeurLargeur();

private:
    std::unique_ptr<BacASable> bac;
    std::unique_ptr<DoublureApplication> appli;
};

namespace {

gestion_radio module(const QByteArray &numero, char present = 1)
{
    gestion_radio gr;
    std::memset(&gr, 0, sizeof gr);
    gr.present = present;
    Champs::ecrireTexte(gr.numero, gestion_radio::LARGEUR_NUMERO, numero,
                        gestion_radio::LARGEUR_NUMERO);
    return gr;
}

template <typename T>
T lire(const QByteArray &zone, int slot, int offset)
{
    T valeur;
    std::memcpy(&valeur, zone.constData() + slot * Octets::MODULE + offset, sizeof valeur);
    return valeur;
}

QByteArray texte(const QByteArray &zone, int slot, int offset, int largeur)
{
    return zone.mid(slot * Octets::MODULE + offset, largeur);
}

QByteArray champ(const QByteArray &contenu, int largeur)
{
    return contenu + QByteArray(largeur - contenu.size(), '\0');
}

// The slots, as "slot:present:numero" items, before each case.
typedef QStringList Occupation;

void occuper(DoublureApplication &appli, const Occupation &occupation)
{
    for (const QString &item : occupation) {
        const QStringList parts = item.split(QLatin1Char(':'));
        appli.ecrireModule(parts.at(0).toInt(),
                           module(parts.at(2).toLatin1(), static_cast<char>(parts.at(1).toInt())));
    }
}

} // namespace

void TestZoneHF::init()
{
    bac = std::make_unique<BacASable>();
    QVERIFY(bac->estValide());
    bac->activer();
    appli = std::make_unique<DoublureApplication>();
    QString erreur;
    QVERIFY2(appli->creerZones(&erreur), qPrintable(erreur));
}

void TestZoneHF::cleanup()
{
    appli.reset();
    bac.reset();
}

void TestZoneHF::setModuleEcritChaqueChamp()
{
    gestion_radio gr = module("fd00::212:4b00:1");
    Champs::ecrireTexte(gr.parent, gestion_radio::LARGEUR_PARENT, "fd00::1", 49);
    Champs::ecrireTexte(gr.type, gestion_radio::LARGEUR_TYPE, "B", 1);
    Champs::ecrireTexte(gr.valeur, gestion_radio::LARGEUR_VALEUR, "21.5:40", 49);
    gr.pile = 3.25;
    gr.rank = 512.0;
    gr.current_rank = -13.5;
    gr.nb_sauts = 0x0A0B0C0D;
    gr.taux_reception = 87.5;
    gr.taux_utilisation = 12.25;
    gr.dateheure_mesure = 0xF1020304u;
    gr.date_changement_pile = -2;

    fonctions_bases::setModule(gr);

    const QByteArray zone = appli->octetsZoneHF();
    QCOMPARE(zone.at(Octets::PRESENT), char(1));
    QCOMPARE(texte(zone, 0, Octets::NUMERO, 50), champ("fd00::212:4b00:1", 50));
    QCOMPARE(texte(zone, 0, Octets::PARENT, 50), champ("fd00::1", 50));
    QCOMPARE(texte(zone, 0, Octets::TYPE, 2), champ("B", 2));
    QCOMPARE(texte(zone, 0, Octets::VALEUR, 50), champ("21.5:40", 50));
    QCOMPARE(lire<double>(zone, 0, Octets::PILE), 3.25);
    QCOMPARE(lire<double>(zone, 0, Octets::RANK), 512.0);
    QCOMPARE(lire<double>(zone, 0, Octets::CURRENT_RANK), -13.5);
    QCOMPARE(lire<double>(zone, 0, Octets::TAUX_RECEPTION), 87.5);
    QCOMPARE(lire<double>(zone, 0, Octets::TAUX_UTILISATION), 12.25);
    // Little-endian integers, byte by byte.
    QCOMPARE(texte(zone, 0, Octets::NB_SAUTS, 4), QByteArray("\x0D\x0C\x0B\x0A", 4));
    QCOMPARE(texte(zone, 0, Octets::DATEHEURE_MESURE, 4), QByteArray("\x04\x03\x02\xF1", 4));
    QCOMPARE(texte(zone, 0, Octets::DATE_CHANGEMENT_PILE, 4), QByteArray("\xFE\xFF\xFF\xFF", 4));
    // Nothing beyond the record.
    QCOMPARE(zone.mid(Octets::MODULE), QByteArray(zone.size() - Octets::MODULE, '\0'));
}

void TestZoneHF::choixDuSlot_data()
{
    QTest::addColumn<Occupation>("occupation");
    QTest::addColumn<QByteArray>("numero");
    QTest::addColumn<int>("slotAttendu");

    QTest::newRow("table vide: slot 0") << Occupation() << QByteArray("12") << 0;
    QTest::newRow("autre module: slot suivant") << Occupation{"0:1:12"} << QByteArray("13") << 1;
    QTest::newRow("module connu garde son slot malgre un slot libre avant")
        << Occupation{"0:1:1", "1:1:2", "2:1:3", "10:1:12"} << QByteArray("12") << 10;
    QTest::newRow("module retire reecrit a sa place")
        << Occupation{"1:1:1", "5:0:12"} << QByteArray("12") << 5;
    QTest::newRow("plus petit slot libre")
        << Occupation{"0:1:1", "1:1:2", "3:1:3", "4:0:4"} << QByteArray("12") << 2;
    QTest::newRow("prefixe d'une autre adresse: nouveau slot")
        << Occupation{"0:1:123"} << QByteArray("12") << 1;
    Occupation pleine;
    for (int i = 0; i < 100; ++i)
        pleine << QStringLiteral("%1:%2:m%1").arg(i).arg(i % 2);
    QTest::newRow("table pleine: abandon") << pleine << QByteArray("12") << -1;
}

void TestZoneHF::choixDuSlot()
{
    QFETCH(Occupation, occupation);
    QFETCH(QByteArray, numero);
    QFETCH(int, slotAttendu);

    occuper(*appli, occupation);
    QByteArray attendu = appli->octetsZoneHF();
    gestion_radio gr = module(numero);
    gr.pile = 2.5;
    gr.dateheure_mesure = 1700000000u;
    if (slotAttendu >= 0)
        attendu.replace(slotAttendu * Octets::MODULE, Octets::MODULE,
                        QByteArray(reinterpret_cast<const char *>(&gr), sizeof gr));

    CaptureLog capture;
    fonctions_bases::setModule(gr);
    QCOMPARE(appli->octetsZoneHF(), attendu);
    QCOMPARE(capture.lignes(), QStringList());
}

void TestZoneHF::tauxEcritsSeulsEnPlace_data()
{
    QTest::addColumn<Occupation>("occupation");
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<int>("slotAttendu");

    QTest::newRow("module present") << Occupation{"0:1:11", "4:1:12"} << "12" << 4;
    QTest::newRow("module retire aussi") << Occupation{"2:0:12", "4:1:12"} << "12" << 2;
    QTest::newRow("module inconnu: rien") << Occupation{"0:1:11"} << "12" << -1;
    QTest::newRow("table vide: aucun slot pris") << Occupation() << "12" << -1;
}

void TestZoneHF::tauxEcritsSeulsEnPlace()
{
    QFETCH(Occupation, occupation);
    QFETCH(QString, adresse);
    QFETCH(int, slotAttendu);

    occuper(*appli, occupation);
    // The rest of each record must survive: fill it with recognisable bytes.
    uchar *zone = appli->donnees(QStringLiteral("Zone_HF"));
    for (int i = 0; i < 100; ++i)
        std::memset(zone + i * Octets::MODULE + Octets::PILE, 0x5A, Octets::MODULE - Octets::PILE);
    QByteArray attendu = appli->octetsZoneHF();
    if (slotAttendu >= 0) {
        const double recu = 96.5;
        const double utilise = 3.75;
        attendu.replace(slotAttendu * Octets::MODULE + Octets::TAUX_RECEPTION, 8,
                        QByteArray(reinterpret_cast<const char *>(&recu), 8));
        attendu.replace(slotAttendu * Octets::MODULE + Octets::TAUX_UTILISATION, 8,
                        QByteArray(reinterpret_cast<const char *>(&utilise), 8));
    }

    fonctions_bases::setModuleTaux(adresse, 96.5, 3.75);
    QCOMPARE(appli->octetsZoneHF(), attendu);
}

void TestZoneHF::getModule_data()
{
    QTest::addColumn<Occupation>("occupation");
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<int>("slotAttendu");

    QTest::newRow("present") << Occupation{"0:1:11", "7:1:12"} << "12" << 7;
    QTest::newRow("premier present si repete")
        << Occupation{"3:0:12", "5:1:12", "6:1:12"} << "12" << 5;
    QTest::newRow("retire: non trouve") << Occupation{"3:0:12"} << "12" << -1;
    QTest::newRow("inconnu: non trouve") << Occupation{"0:1:11"} << "12" << -1;
    QTest::newRow("adresse vide et slots libres") << Occupation() << "" << -1;
}

void TestZoneHF::getModule()
{
    QFETCH(Occupation, occupation);
    QFETCH(QString, adresse);
    QFETCH(int, slotAttendu);

    occuper(*appli, occupation);
    if (slotAttendu >= 0) {
        gestion_radio gr = module(adresse.toLatin1());
        gr.nb_sauts = 3;
        gr.pile = 3.5;
        appli->ecrireModule(slotAttendu, gr);
    }
    const gestion_radio gr = fonctions_bases::getModule(adresse);
    const QByteArray obtenu(reinterpret_cast<const char *>(&gr), sizeof gr);
    if (slotAttendu >= 0) {
        QCOMPARE(obtenu, appli->octetsZoneHF().mid(slotAttendu * Octets::MODULE, Octets::MODULE));
    } else {
        const gestion_radio absent = fonctions_bases::moduleNonTrouve();
        QCOMPARE(obtenu, QByteArray(reinterpret_cast<const char *>(&absent), sizeof absent));
    }
}

void TestZoneHF::moduleNonTrouve()
{
    const gestion_radio gr = fonctions_bases::getModule(QStringLiteral("absent"));
    const QByteArray o(reinterpret_cast<const char *>(&gr), sizeof gr);
    QCOMPARE(o.at(Octets::PRESENT), char(0));
    QCOMPARE(o.mid(Octets::NUMERO, 100), QByteArray(100, '\0'));
    for (int offset :
         {Octets::PILE, Octets::RANK, Octets::TAUX_RECEPTION, Octets::TAUX_UTILISATION})
        QCOMPARE(lire<double>(o, 0, offset), -1.0);
    for (int offset : {Octets::NB_SAUTS, Octets::DATEHEURE_MESURE, Octets::DATE_CHANGEMENT_PILE})
        QCOMPARE(o.mid(offset, 4), QByteArray(4, '\xFF'));
    // The same record whether the table lacks the module or is not there at all.
    appli->detruireZone(QStringLiteral("Zone_HF"));
    const gestion_radio sansZone = fonctions_bases::getModule(QStringLiteral("absent"));
    QCOMPARE(QByteArray(reinterpret_cast<const char *>(&sansZone), sizeof sansZone), o);
}

void TestZoneHF::copieDeLaTable()
{
    occuper(*appli, Occupation{"0:1:11", "99:0:12"});
    uchar *zone = appli->donnees(QStringLiteral("Zone_HF"));
    zone[99 * Octets::MODULE + Octets::DATE_CHANGEMENT_PILE + 3] = 0x7F;
    les_modules_radio *copie = fonctions_bases::getLesModulesRadio();
    QVERIFY(copie);
    const QByteArray octets(reinterpret_cast<const char *>(copie), sizeof *copie);
    std::free(copie);
    QCOMPARE(octets, appli->octetsZoneHF());
}

void TestZoneHF::zonesAbsentes()
{
    for (const QString &cle : DoublureApplication::cles())
        appli->detruireZone(cle);

    CaptureLog capture;
    fonctions_bases::setModule(module("12"));
    fonctions_bases::setModuleTaux(QStringLiteral("13"), 1.0, 2.0);
    const QStringList lignes = capture.lignes();
    QCOMPARE(lignes.size(), 2);
    QVERIFY2(lignes.at(0).startsWith("Erreur zone.attach() sur fonctions_bases::setModule 12 : "),
             qPrintable(lignes.at(0)));
    QVERIFY2(
        lignes.at(1).startsWith("Erreur zone.attach() sur fonctions_bases::setModuleTaux 13 : "),
        qPrintable(lignes.at(1)));
    QVERIFY(lignes.at(0).size() >
            int(qstrlen("Erreur zone.attach() sur fonctions_bases::setModule 12 : ")));

    QCOMPARE(fonctions_bases::getLesModulesRadio(), nullptr);
    QCOMPARE(fonctions_bases::getLesVoiesRadio(QString(), {"RADIO"}).size(), 0);
    QCOMPARE(fonctions_bases::getAdresseBR(), QString());
    // Nothing was created on the way.
    QSharedMemory zone(QStringLiteral("Zone_HF"));
    QVERIFY(!zone.attach());
}

void TestZoneHF::voiesRadio_data()
{
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<QList<int>>("voiesAttendues");

    // Channels set up in voiesRadio(); listed there with the reason each is in or out.
    QTest::newRow("toutes les voies radio") << QString() << QList<int>{0, 1, 2, 5, 9, 64};
    QTest::newRow("un module") << "ABCDEFGH" << QList<int>{1, 9};
    QTest::newRow("adresse plus longue que 8") << "ABCDEFGH:1" << QList<int>();
    QTest::newRow("adresse de 7") << "ABCDEFG" << QList<int>();
    QTest::newRow("module inconnu") << "ZZZZZZZZ" << QList<int>();
}

void TestZoneHF::voiesRadio()
{
    QFETCH(QString, adresse);
    QFETCH(QList<int>, voiesAttendues);

    const QStringList types = {"ANALOGIQUE", "RADIO_TEMP", "RADIO_CONTACT",
                               "Radio_x",    "RADI",       "XRADIO"};
    appli->ecrireVoie(0, 1, "11111111", 0, 0.0);     // record 0 is walked too
    appli->ecrireVoie(1, 1, "ABCDEFGH:1:2", 1, 0.0); // matches ABCDEFGH
    appli->ecrireVoie(2, 2, "IJKLMNOP", 2, 0.0);     // radio contact type
    appli->ecrireVoie(3, 1, "QRSTUVW", 3, 0.0);      // 7 characters
    appli->ecrireVoie(4, 0, "ABCDEFGH", 4, 0.0);     // not a radio type
    appli->ecrireVoie(5, 1, "abcdefghij", 5, 0.0);
    appli->ecrireVoie(6, 3, "ABCDEFGH", 6, 0.0);  // "Radio": case matters
    appli->ecrireVoie(7, -1, "ABCDEFGH", 7, 0.0); // type out of the list
    appli->ecrireVoie(8, 6, "ABCDEFGH", 8, 0.0);  // type one past the list
    appli->ecrireVoie(9, 1, "ABCDEFGH", 9, 0.0);
    appli->ecrireVoie(10, 4, "ABCDEFGH", 10, 0.0); // "RADI" is too short
    appli->ecrireVoie(11, 5, "ABCDEFGH", 11, 0.0); // RADIO not at the start
    appli->ecrireVoie(64, 1, "99999999", 64, 0.0); // last record walked

    const QList<La_config_voies> voies = fonctions_bases::getLesVoiesRadio(adresse, types);
    QList<int> numeros;
    for (const La_config_voies &voie : voies)
        numeros << voie.numero();
    QCOMPARE(numeros, voiesAttendues);
    // Records come back whole.
    if (!voies.isEmpty()) {
        const uchar *zone = appli->donnees(QString::fromLatin1(La_config_voies::CLE));
        QCOMPARE(std::memcmp(voies.last().octets,
                             zone + La_config_voies::debutVoie(voiesAttendues.last()),
                             La_config_voies::TAILLE),
                 0);
    }
}

void TestZoneHF::champsSansNulLusSurLeurLargeur()
{
    // 50 address bytes with no NUL, followed by the non-zero parent field.
    const QByteArray numero(50, 'N');
    gestion_radio gr = module(numero);
    std::memcpy(gr.numero, numero.constData(), 50);
    Champs::ecrireTexte(gr.parent, gestion_radio::LARGEUR_PARENT, "PPPP", 49);
    appli->ecrireModule(4, gr);

    QCOMPARE(fonctions_bases::getModule(QString::fromLatin1(numero)).present, char(1));
    gr.pile = 9.0;
    fonctions_bases::setModule(gr);
    const QByteArray zone = appli->octetsZoneHF();
    QCOMPARE(lire<double>(zone, 4, Octets::PILE), 9.0);
    QCOMPARE(lire<double>(zone, 0, Octets::PILE), 0.0);

    // The border-router address field, 50 bytes, with the segment's last byte after it.
    uchar *tessalin = appli->donnees(QStringLiteral("Config_iTessalin"));
    std::memset(tessalin + 1124, 'b', 50);
    QCOMPARE(fonctions_bases::getAdresseBR(), QString(50, QLatin1Char('b')));
    appli->setAdresseBR("fd00::212:4b00:615:a5b6");
    QCOMPARE(fonctions_bases::getAdresseBR(), QStringLiteral("fd00::212:4b00:615:a5b6"));
}

QTEST_GUILESS_MAIN(TestZoneHF)
#include "tst_zonehf.moc"
