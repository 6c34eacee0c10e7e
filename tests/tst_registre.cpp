#include "bancservice.h"

#include "connexions/qradio.h"

#include <QPointer>
#include <QtTest>

#include <memory>

// The registry of radio sensors: how a configured channel becomes a sensor,
// when its connection is kept, replaced or dropped, and which channel types
// count as radio.
class TestRegistre : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void adresseDecoupee_data();
    void adresseDecoupee();
    void typesRadioEtContact_data();
    void typesRadioEtContact();
    void capteursIdentiques_data();
    void capteursIdentiques();
    void voieIdentiqueGardeSaConnexion();
    void voieModifieeRemplaceeAvecSesLignesDeRetrait();
    void retraitDUneVoieInconnueSilencieux();
    void typeNonRadioALaCreation();

private:
    // Tests that change the registry start from a fresh service; the others
    // share one, as building it costs a database and a socket.
    void nouveauBanc();
    std::unique_ptr<BancService> banc;
};

namespace {
const QStringList TYPES = {
    QStringLiteral("PT100"),
    QStringLiteral("RADIO"),
    QStringLiteral("RADIO Contact"),
    QStringLiteral("RADIOcontact"),
    QStringLiteral("RADIO CONTACT sec"),
    QStringLiteral("Radio"),
    QStringLiteral(" RADIO"),
    QStringLiteral("radio contact"),
    QStringLiteral("RADI"),
    QStringLiteral("PT100 contact"),
    QStringLiteral("RADIO Température"),
};
constexpr int PT100 = 0;
constexpr int RADIO = 1;
} // namespace

void TestRegistre::initTestCase()
{
    nouveauBanc();
    QCOMPARE(banc->service->lesTypesVoies(), TYPES);
}

void TestRegistre::cleanupTestCase()
{
    banc.reset();
}

void TestRegistre::nouveauBanc()
{
    banc.reset();
    banc = std::make_unique<BancService>(TYPES);
}

void TestRegistre::adresseDecoupee_data()
{
    QTest::addColumn<QByteArray>("texte");
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<QStringList>("parametres");

    QTest::newRow("address alone") << QByteArray("A1B2") << "A1B2" << QStringList();
    QTest::newRow("two parameters") << QByteArray("A1B2:3:x") << "A1B2" << QStringList{"3", "x"};
    QTest::newRow("one empty parameter") << QByteArray("A1B2:") << "A1B2" << QStringList{""};
    QTest::newRow("empty parts kept") << QByteArray("A::b:") << "A" << QStringList{"", "b", ""};
    QTest::newRow("empty address before a parameter") << QByteArray(":5") << "" << QStringList{"5"};
    QTest::newRow("empty text") << QByteArray() << "" << QStringList();
    QTest::newRow("UTF-8 text") << QByteArray("capteur\xc3\xa9:1")
                                << QString::fromUtf8("capteur\xc3\xa9") << QStringList{"1"};
}

void TestRegistre::adresseDecoupee()
{
    QFETCH(QByteArray, texte);
    QFETCH(QString, adresse);
    QFETCH(QStringList, parametres);

    banc->service->effaceCapteurRecupere(3);
    banc->service->enregistrerVoieRadio(3, RADIO, texte, 7);

    const auto &capteurs = banc->service->lesCapteursRecuperes();
    QCOMPARE(capteurs.size(), 1);
    QCOMPARE(capteurs.at(0).voie, 3);
    QCOMPARE(capteurs.at(0).type, RADIO);
    QCOMPARE(capteurs.at(0).adresse, adresse);
    QCOMPARE(capteurs.at(0).numero, 7);
    QCOMPARE(capteurs.at(0).parametres, parametres);
    // The connection is built on the address alone, not on the whole text.
    QConnexionRJ45 *connexion = banc->service->lesConnexions().value(3);
    QVERIFY(connexion);
    QCOMPARE(connexion->genererIdTrame(), adresse + QStringLiteral(":7"));
}

void TestRegistre::typesRadioEtContact_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("radio");
    QTest::addColumn<bool>("contact");
    QTest::addColumn<QString>("nom");

    QTest::newRow("PT100") << 0 << false << false << "PT100";
    QTest::newRow("RADIO") << 1 << true << false << "RADIO";
    QTest::newRow("RADIO Contact") << 2 << true << true << "RADIO Contact";
    QTest::newRow("contact glued to RADIO") << 3 << true << true << "RADIOcontact";
    QTest::newRow("CONTACT in capitals") << 4 << true << true << "RADIO CONTACT sec";
    QTest::newRow("Radio in other case") << 5 << false << false << "Radio";
    QTest::newRow("blank before RADIO") << 6 << false << false << " RADIO";
    QTest::newRow("radio contact in small letters") << 7 << false << false << "radio contact";
    QTest::newRow("four letters only") << 8 << false << false << "RADI";
    QTest::newRow("contact without RADIO") << 9 << false << false << "PT100 contact";
    QTest::newRow("RADIO with a suffix") << 10 << true << false << "RADIO Température";
    QTest::newRow("negative number") << -1 << false << false << "";
    QTest::newRow("just past the list") << 11 << false << false << "";
    QTest::newRow("far past the list") << 1000 << false << false << "";
}

void TestRegistre::typesRadioEtContact()
{
    QFETCH(int, type);
    QFETCH(bool, radio);
    QFETCH(bool, contact);
    QFETCH(QString, nom);

    QCOMPARE(banc->service->typeEstRADIO(type), radio);
    QCOMPARE(banc->service->typeEstRADIOContact(type), contact);
    QCOMPARE(banc->service->indexTypeToString(type), nom);
    if (!radio)
        return;
    // The contact flag reaches the connection the registry builds.
    AcquisitionRadio::capteur c(5, type, QStringLiteral("0042"), 0, nullptr);
    std::unique_ptr<QConnexionRJ45> connexion(banc->service->creerConnexionRJ45(c));
    auto *radioConnexion = qobject_cast<QRadio *>(connexion.get());
    QVERIFY(radioConnexion);
    QCOMPARE(radioConnexion->estContact, contact);
}

void TestRegistre::capteursIdentiques_data()
{
    QTest::addColumn<bool>("identique");
    QTest::addColumn<int>("voie");
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("adresse");
    QTest::addColumn<int>("numero");
    QTest::addColumn<QStringList>("parametres");
    // Each row is compared with: channel 4, type 1, address 0042, numero 2, parameters a, b.

    QTest::newRow("same") << true << 4 << 1 << "0042" << 2 << QStringList{"a", "b"};
    QTest::newRow("other channel") << false << 5 << 1 << "0042" << 2 << QStringList{"a", "b"};
    QTest::newRow("other type") << false << 4 << 2 << "0042" << 2 << QStringList{"a", "b"};
    QTest::newRow("other address") << false << 4 << 1 << "0043" << 2 << QStringList{"a", "b"};
    QTest::newRow("parameter case") << false << 4 << 1 << "0042" << 2 << QStringList{"A", "b"};
    QTest::newRow("other numero") << false << 4 << 1 << "0042" << 3 << QStringList{"a", "b"};
    QTest::newRow("parameters swapped") << false << 4 << 1 << "0042" << 2 << QStringList{"b", "a"};
    QTest::newRow("one parameter less") << false << 4 << 1 << "0042" << 2 << QStringList{"a"};
    QTest::newRow("one parameter more")
        << false << 4 << 1 << "0042" << 2 << QStringList{"a", "b", ""};
    QTest::newRow("no parameter") << false << 4 << 1 << "0042" << 2 << QStringList();
}

void TestRegistre::capteursIdentiques()
{
    QFETCH(bool, identique);
    QFETCH(int, voie);
    QFETCH(int, type);
    QFETCH(QString, adresse);
    QFETCH(int, numero);
    QFETCH(QStringList, parametres);

    QStringList reference{"a", "b"};
    const AcquisitionRadio::capteur a(4, 1, QStringLiteral("0042"), 2, &reference);
    const AcquisitionRadio::capteur b(voie, type, adresse, numero, &parametres);
    QCOMPARE(a.estIdentique(b), identique);
    QCOMPARE(b.estIdentique(a), identique);

    banc->service->enregistrerVoieRadio(4, 1, "0042:a:b", 2);
    QCOMPARE(banc->service->capteurDejaRecupere(b), identique);
}

void TestRegistre::voieIdentiqueGardeSaConnexion()
{
    nouveauBanc();
    banc->service->enregistrerVoieRadio(2, RADIO, "0042:x", 0);
    const QPointer<QConnexionRJ45> premiere = banc->service->lesConnexions().value(2);
    QVERIFY(premiere);

    banc->lignes.clear();
    banc->service->enregistrerVoieRadio(2, RADIO, "0042:x", 0);

    QCOMPARE(banc->service->lesConnexions().value(2), premiere.data());
    QCOMPARE(banc->service->lesCapteursRecuperes().size(), 1);
    QVERIFY(banc->lignes.isEmpty());
}

void TestRegistre::voieModifieeRemplaceeAvecSesLignesDeRetrait()
{
    nouveauBanc();
    banc->service->enregistrerVoieRadio(4, RADIO, "0042", 0);
    banc->service->enregistrerVoieRadio(2, RADIO, "0043", 0);
    const QPointer<QConnexionRJ45> ancienne = banc->service->lesConnexions().value(4);

    banc->lignes.clear();
    banc->service->enregistrerVoieRadio(4, RADIO, "0042", 1);

    QCOMPARE(banc->lignes,
             (QStringList{"Retrait du capteur RJ45 4", "(avant retrait nb = 2 / 2)"}));
    const auto &capteurs = banc->service->lesCapteursRecuperes();
    QCOMPARE(capteurs.size(), 2);
    QCOMPARE(capteurs.last().voie, 4);
    QCOMPARE(capteurs.last().numero, 1);
    QConnexionRJ45 *nouvelle = banc->service->lesConnexions().value(4);
    QVERIFY(nouvelle);
    QVERIFY(nouvelle != ancienne.data());
    QCOMPARE(nouvelle->genererIdTrame(), QStringLiteral("0042:1"));
    // The replaced connection is left alive, as nothing says who else holds it.
    QVERIFY(!ancienne.isNull());

    // Leaving the registry: counted before the removal, then gone from both.
    banc->lignes.clear();
    banc->service->effaceCapteurRecupere(2);
    QCOMPARE(banc->lignes,
             (QStringList{"Retrait du capteur RJ45 2", "(avant retrait nb = 2 / 2)"}));
    QCOMPARE(banc->service->lesCapteursRecuperes().size(), 1);
    QVERIFY(!banc->service->lesConnexions().contains(2));
}

void TestRegistre::retraitDUneVoieInconnueSilencieux()
{
    nouveauBanc();
    banc->service->enregistrerVoieRadio(1, RADIO, "0042", 0);
    banc->lignes.clear();

    banc->service->effaceCapteurRecupere(9);

    QVERIFY(banc->lignes.isEmpty());
    QCOMPARE(banc->service->lesCapteursRecuperes().size(), 1);
    QCOMPARE(banc->service->lesConnexions().size(), 1);
}

void TestRegistre::typeNonRadioALaCreation()
{
    nouveauBanc();
    const AcquisitionRadio::capteur pt100(6, PT100, QStringLiteral("0042"), 0, nullptr);
    QCOMPARE(banc->service->creerConnexionRJ45(pt100), nullptr);
    const AcquisitionRadio::capteur horsListe(6, 40, QStringLiteral("0042"), 0, nullptr);
    QCOMPARE(banc->service->creerConnexionRJ45(horsListe), nullptr);
    QCOMPARE(banc->lignes, (QStringList{"Type 0 inconnu : PT100", "Type 40 inconnu : "}));

    // A sensor whose connection could not be made stays registered, so the
    // next cycle finds it identical and does not try again.
    banc->service->ajouterCapteurRecupere(pt100);
    QVERIFY(banc->service->capteurDejaRecupere(pt100));
    QVERIFY(!banc->service->lesConnexions().contains(6));
}

QTEST_GUILESS_MAIN(TestRegistre)
#include "tst_registre.moc"
