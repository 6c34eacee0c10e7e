// Frame decoding: which frames are accepted, what reading each one gives, and
// how the last reading of each module is kept.

#include "aide_reception.h"
#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"

#include <QtTest>

#include <memory>

using namespace AideReception;

class TestDecodage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void decodeUneTrame_data();
    void decodeUneTrame();
    void rejetteUneTrame_data();
    void rejetteUneTrame();
    void trameVideNeLaissePasDeFin();
    void garderLaDerniereLectureDeChaqueModule();
    void texteCoupeAuPremierOctetNul();

private:
    const QDateTime instant{QDate(2026, 11, 15), QTime(12, 38, 33)};
    BacASable bac;
    DoublureApplication doublure;
    std::unique_ptr<QServeurUdp> serveur;
    std::unique_ptr<CaptureLog> capture;
};

void TestDecodage::initTestCase()
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

void TestDecodage::init()
{
    Horloge::figer(instant);
    capture->vider();
}

void TestDecodage::cleanupTestCase()
{
    capture.reset();
    serveur.reset();
    Horloge::liberer();
}

namespace {

void ligne(const char *nom, const char *trame, const char *type, const char *module,
           const char *parent, double rank, int rangTronque, const char *valeur, double batterie,
           int alim)
{
    QTest::newRow(nom) << QByteArray(trame) << QString::fromUtf8(type) << QString::fromUtf8(module)
                       << QString::fromUtf8(parent) << rank << rangTronque
                       << QString::fromUtf8(valeur) << batterie << alim;
}

} // namespace

void TestDecodage::decodeUneTrame_data()
{
    QTest::addColumn<QByteArray>("trame");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("parent");
    QTest::addColumn<double>("rank");
    QTest::addColumn<int>("rangTronque");
    QTest::addColumn<QString>("valeur");
    QTest::addColumn<double>("batterie");
    QTest::addColumn<int>("alim");

    // The thresholds let a frame through one field short: the missing field
    // reads as 0.
    // clang-format off
    // name, frame, then the reading: type, module, parent, rank, rank handed to
    // the module update, valeur, batterie, alim
    ligne("A value, no battery",           "A12:1:2560:215",                     "A", "12", "1",  256.0, 256, "21.5",        0.0, 0);
    ligne("A at its threshold",            "A12:1:2560",                         "A", "12", "1",  256.0, 256, "0",           0.0, 0);
    ligne("A with battery",                "A12:1:25:215:36",                    "A", "12", "1",  2.5,   2,   "21.5",        3.6, 0);
    ligne("B two values",                  "B7:3:15:201:-52:36",                 "B", "7",  "3",  1.5,   1,   "20.1:-5.2",   3.6, 0);
    ligne("B at its threshold",            "B7:3:15:201",                        "B", "7",  "3",  1.5,   1,   "20.1:0",      0.0, 0);
    ligne("C",                             "C8:3:20:-7:30",                      "C", "8",  "3",  2.0,   2,   "-0.7",        3.0, 0);
    ligne("D",                             "D9:2:30:1000:5:29",                  "D", "9",  "2",  3.0,   3,   "100:0.5",     2.9, 0);
    ligne("E complete",                    "E7:3:20:201:455:33:1",               "E", "7",  "3",  2.0,   2,   "20.1:45.5",   3.3, 1);
    ligne("E without battery",             "E7:3:20:201:455",                    "E", "7",  "3",  2.0,   2,   "20.1:45.5",   0.0, 0);
    ligne("E supply not an integer",       "E7:3:20:201:455:33:1.5",             "E", "7",  "3",  2.0,   2,   "20.1:45.5",   3.3, 0);
    ligne("F six significant digits",      "F1:0:0:1234567",                     "F", "1",  "0",  0.0,   0,   "123457",      0.0, 0);
    ligne("G exponent notation",           "G2:0:0:1234567890:12",               "G", "2",  "0",  0.0,   0,   "1.23457e+08", 1.2, 0);
    ligne("R battery only",                "R5:1:10:36",                         "R", "5",  "1",  1.0,   1,   "",            3.6, 0);
    ligne("Z without battery",             "Z5:1:10",                            "Z", "5",  "1",  1.0,   1,   "",            0.0, 0);
    ligne("negative rank toward zero",     "A6:1:-15:100",                       "A", "6",  "1",  -1.5,  -1,  "10",          0.0, 0);
    ligne("fields that are not numbers",   "A6:1:abc:xyz:?",                     "A", "6",  "1",  0.0,   0,   "0",           0.0, 0);
    ligne("empty fields kept",             "A::35:",                             "A", "",   "",   3.5,   3,   "0",           0.0, 0);
    ligne("UTF-8 address",                 "A\xc3\xa9t\xc3\xa9:1:0:10",          "A", "\xc3\xa9t\xc3\xa9", "1", 0.0, 0, "1", 0.0, 0);
    ligne("rank beyond the int range",     "A7:1:1e300:10",                      "A", "7",  "1",  1e299, 2147483647, "1",    0.0, 0);
    // clang-format on
}

void TestDecodage::decodeUneTrame()
{
    QFETCH(QByteArray, trame);
    QFETCH(QString, type);
    QFETCH(QString, module);
    QFETCH(QString, parent);
    QFETCH(double, rank);
    QFETCH(int, rangTronque);
    QFETCH(QString, valeur);
    QFETCH(double, batterie);
    QFETCH(int, alim);

    serveur->traiterDatagram(trame);

    const QStringList lignes = capture->lignes();
    QCOMPARE(finissantPar(lignes, QStringLiteral("début traiterDatagram : Trame UDP reçue : ") +
                                      QString::fromUtf8(trame))
                 .size(),
             1);
    QCOMPARE(finissantPar(lignes, QStringLiteral("fin traiterDatagram : a_traite = 1")).size(), 1);
    QCOMPARE(capture->compter(QStringLiteral("Type trame inconnu")), 0);

    const QList<DonneesUDP> donnees = serveur->copieDonneesUDP();
    QVERIFY(!donnees.isEmpty());
    const DonneesUDP &d = donnees.last();
    QCOMPARE(d.dateheure, instant);
    QCOMPARE(d.type, type);
    QCOMPARE(d.module, module);
    QCOMPARE(d.parent, parent);
    QCOMPARE(d.rank, rank);
    QCOMPARE(d.valeur, valeur);
    QCOMPARE(d.batterie, batterie);
    QCOMPARE(d.alim, alim);

    // The module update got the rank truncated and ran to its end before the
    // decoder closed.
    const QString prefixe = QStringLiteral("QServeurUDP::setModule %1 ").arg(module);
    QCOMPARE(finissantPar(lignes, prefixe + QStringLiteral("rank %1").arg(rangTronque)).size(), 1);
    const auto rang = [&lignes](const QString &texte) {
        for (int i = 0; i < lignes.size(); ++i) {
            if (lignes.at(i).contains(texte))
                return i;
        }
        return -1;
    };
    const int finModule = rang(QStringLiteral("setModule fin traitement classique"));
    const int finDecodage = rang(QStringLiteral("fin traiterDatagram : a_traite = 1"));
    QVERIFY(finModule >= 0);
    QVERIFY(finModule < finDecodage);
}

void TestDecodage::rejetteUneTrame_data()
{
    QTest::addColumn<QByteArray>("trame");
    QTest::addColumn<QString>("typeInconnu");

    QTest::newRow("unknown letter") << QByteArray("X1:2:3:4") << "X";
    QTest::newRow("lower-case type") << QByteArray("a1:2:3:4") << "a";
    QTest::newRow("digit as type") << QByteArray("11:2:3:4") << "1";
    QTest::newRow("letter beyond Latin-1") << QByteArray("\xce\xa9"
                                                         "1:2:3:4")
                                           << QString::fromUtf8("\xce\xa9");
    QTest::newRow("A with two fields") << QByteArray("A1:2") << "";
    QTest::newRow("type letter alone") << QByteArray("A") << "";
    QTest::newRow("B with three fields") << QByteArray("B1:2:3") << "";
    QTest::newRow("D with three fields") << QByteArray("D1:2:3") << "";
    QTest::newRow("E with four fields") << QByteArray("E1:2:3:4") << "";
    QTest::newRow("R with two fields") << QByteArray("R1:2") << "";
    QTest::newRow("Z with two fields") << QByteArray("Z1:2") << "";
}

void TestDecodage::rejetteUneTrame()
{
    QFETCH(QByteArray, trame);
    QFETCH(QString, typeInconnu);

    serveur->traiterDatagram(QByteArray("G99:0:0:1"));
    const QList<DonneesUDP> avant = serveur->copieDonneesUDP();
    const int infosAvant = serveur->copieInfosTrame().size();
    capture->vider();

    serveur->traiterDatagram(trame);

    const QStringList lignes = capture->lignes();
    QCOMPARE(finissantPar(lignes, QStringLiteral("fin traiterDatagram : a_traite = 0")).size(), 1);
    const QStringList inconnus = capture->contenant(QStringLiteral("Type trame inconnu"));
    if (typeInconnu.isEmpty()) {
        QVERIFY(inconnus.isEmpty());
    } else {
        QCOMPARE(inconnus.size(), 1);
        QVERIFY(inconnus.first().endsWith(
            QStringLiteral("Type trame inconnu : '%1'").arg(typeInconnu)));
    }
    QCOMPARE(capture->compter(QStringLiteral("setModule début traitement classique")), 0);

    const QList<DonneesUDP> apres = serveur->copieDonneesUDP();
    QCOMPARE(apres.size(), avant.size());
    QCOMPARE(apres.last().module, QStringLiteral("99"));
    QCOMPARE(serveur->copieInfosTrame().size(), infosAvant);
}

void TestDecodage::trameVideNeLaissePasDeFin()
{
    serveur->traiterDatagram(QByteArray());
    const QStringList lignes = capture->lignes();
    QCOMPARE(lignes.size(), 1);
    QVERIFY(lignes.first().endsWith(QStringLiteral("début traiterDatagram : Trame UDP reçue : ")));
}

void TestDecodage::garderLaDerniereLectureDeChaqueModule()
{
    serveur->traiterDatagram(QByteArray("A31:0:0:10"));
    serveur->traiterDatagram(QByteArray("A32:0:0:20"));
    Horloge::avancer(45);
    serveur->traiterDatagram(QByteArray("B31:0:0:30:40"));

    const QList<DonneesUDP> donnees = serveur->copieDonneesUDP();
    QStringList ordre;
    for (const DonneesUDP &d : donnees) {
        if (d.module.startsWith(QLatin1Char('3')))
            ordre.append(d.module);
    }
    QCOMPARE(ordre, (QStringList{QStringLiteral("32"), QStringLiteral("31")}));
    QCOMPARE(donnees.last().type, QStringLiteral("B"));
    QCOMPARE(donnees.last().valeur, QStringLiteral("3:4"));
    QCOMPARE(donnees.last().dateheure, instant.addSecs(45));

    // The copy handed out stays as it was whatever frames follow.
    serveur->traiterDatagram(QByteArray("A31:0:0:50"));
    QCOMPARE(donnees.last().valeur, QStringLiteral("3:4"));
    QCOMPARE(serveur->copieDonneesUDP().last().valeur, QStringLiteral("5"));
}

void TestDecodage::texteCoupeAuPremierOctetNul()
{
    serveur->traiterDatagram(QByteArray("A41:0:0:15\0:99:99", 17));
    QCOMPARE(capture->contenant(QStringLiteral("Trame UDP reçue : A41:0:0:15")).size(), 1);
    QVERIFY(capture->lignes().first().endsWith(QStringLiteral("A41:0:0:15")));
    QCOMPARE(serveur->copieDonneesUDP().last().valeur, QStringLiteral("1.5"));
    QCOMPARE(serveur->copieDonneesUDP().last().batterie, 0.0);
}

QTEST_GUILESS_MAIN(TestDecodage)
#include "tst_decodage.moc"
