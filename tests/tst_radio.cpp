// The radio channel: which reading of its module it takes, which quantity it
// extracts from it, and what a channel without a usable reading gives.
#include "faux_ps.h"

#include "capturelog.h"
#include "commun/horloge.h"
#include "connexions/qradio.h"

#include <QtTest>

Q_DECLARE_METATYPE(DonneesUDP)

namespace {

const QDateTime T0(QDate(2026, 11, 15), QTime(12, 51, 4));

DonneesUDP lecture(const QString &module, qint64 age, const QString &valeur, double batterie = 3.6,
                   int alim = 1)
{
    return DonneesUDP(T0.addSecs(-age), QStringLiteral("M"), module, QStringLiteral("0000"), 1.0,
                      valeur, batterie, alim);
}

void fournir(const QList<DonneesUDP> &lectures)
{
    QRadio::sourceLectures = [lectures] { return lectures; };
}

struct Resultat
{
    bool leve = false;
    int code = 0;
    double valeur = 0.0;
};

Resultat extraire(QRadio &radio)
{
    Resultat r;
    try {
        r.valeur = radio.getMesureEnCoursSousType();
    } catch (int code) {
        r.leve = true;
        r.code = code;
    }
    return r;
}

} // namespace

class TestRadio : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void constructionEtIdentifiant();
    void sousTypes_data();
    void sousTypes();
    void fraicheurDesLectures_data();
    void fraicheurDesLectures();
    void listeRelueAChaqueIndex();
    void sansServiceNiLectures();
    void cycleAvecHistoriqueEtDefaut();

private:
    std::unique_ptr<FauxPs> ps;
};

void TestRadio::initTestCase()
{
    // Lines are switched on below to read them; a fake ps keeps that quick.
    ps = std::make_unique<FauxPs>();
    QVERIFY(ps->estValide());
}

void TestRadio::init()
{
    Horloge::figer(T0);
    QConnexionRJ45::dh_demarrage = T0.addSecs(-3600);
    QRadio::sourceLectures = {};
}

void TestRadio::cleanupTestCase()
{
    QRadio::sourceLectures = {};
    Horloge::liberer();
    ps.reset();
}

void TestRadio::constructionEtIdentifiant()
{
    QRadio radio(QStringLiteral("A1B2"), 1);
    QCOMPARE(radio.getTypeConnexionRJ45(), QStringLiteral("radio"));
    QCOMPARE(radio.genererIdTrame(), QStringLiteral("A1B2:1"));
    QVERIFY(!radio.doitEcrireLog());
    QVERIFY(!radio.estContact);

    // Thirty minutes of history, with no count limit.
    radio.setEcrireLog(false);
    for (int i = 0; i < 5; ++i) {
        if (i > 0)
            Horloge::avancer(450);
        radio.ajouterDansHistorique(i);
    }
    QCOMPARE(radio.copieHistorique().size(), 5);
    Horloge::avancer(1);
    radio.purgerAnciennesMesuresHistorique();
    QCOMPARE(radio.copieHistorique().size(), 4);
}

void TestRadio::sousTypes_data()
{
    QTest::addColumn<QString>("valeur");
    QTest::addColumn<bool>("contact");
    QTest::addColumn<int>("numero");
    QTest::addColumn<bool>("leve");
    QTest::addColumn<double>("attendu");

    // Battery 3.6, supply indicator 1 in every reading.
    QTest::newRow("premiere valeur") << "14.1:48.7" << false << 0 << false << 14.1;
    QTest::newRow("seconde valeur") << "14.1:48.7" << false << 1 << false << 48.7;
    QTest::newRow("batterie") << "14.1:48.7" << false << 2 << false << 3.6;
    QTest::newRow("batterie, contact") << "0" << true << 2 << false << 3.6;
    QTest::newRow("pas d'operande") << "14.1:48.7" << false << 3 << true << 0.0;
    QTest::newRow("sous-type negatif") << "14.1:48.7" << false << -1 << true << 0.0;
    QTest::newRow("premiere partie vide") << ":5" << false << 0 << false << 0.0;
    QTest::newRow("apres une partie vide") << ":5" << false << 1 << false << 5.0;
    QTest::newRow("pas un nombre") << "abc:2" << false << 0 << false << 0.0;
    QTest::newRow("valeur negative") << "-12.5" << false << 0 << false << -12.5;
    QTest::newRow("contact ouvert") << "0:3" << true << 0 << false << 0.0;
    QTest::newRow("contact ferme") << "2.5" << true << 0 << false << 1.0;
    QTest::newRow("contact negatif") << "-1" << true << 0 << false << 0.0;
    QTest::newRow("contact, alimentation") << "0:3" << true << 1 << false << 1.0;
    QTest::newRow("contact, au-dela") << "0:3" << true << 3 << true << 0.0;
}

void TestRadio::sousTypes()
{
    QFETCH(QString, valeur);
    QFETCH(bool, contact);
    QFETCH(int, numero);
    QFETCH(bool, leve);
    QFETCH(double, attendu);

    fournir({lecture(QStringLiteral("A1B2"), 5, valeur)});
    QRadio radio(QStringLiteral("A1B2"), numero);
    radio.estContact = contact;
    radio.setEcrireLog(true);

    CaptureLog log;
    const Resultat r = extraire(radio);
    QCOMPARE(r.leve, leve);
    if (leve) {
        QCOMPARE(r.code, -1);
        QCOMPARE(log.compter(QStringLiteral(" Pas d'opérande dans la valeur %1 (").arg(valeur)), 1);
        QCOMPARE(log.compter(QStringLiteral(" Aucune mesure trouvée : envoi d'une exception (")),
                 1);
    } else {
        QCOMPARE(r.valeur, attendu);
        QCOMPARE(log.lignes(), QStringList());
    }
}

void TestRadio::fraicheurDesLectures_data()
{
    QTest::addColumn<QList<DonneesUDP>>("lectures");
    QTest::addColumn<bool>("leve");
    QTest::addColumn<double>("attendu");
    QTest::addColumn<QStringList>("agesRejetes");

    const QString m = QStringLiteral("A1B2");
    QTest::newRow("60 s") << QList<DonneesUDP>{lecture(m, 60, QStringLiteral("7"))} << false << 7.0
                          << QStringList();
    QTest::newRow("61 s") << QList<DonneesUDP>{lecture(m, 61, QStringLiteral("7"))} << true << 0.0
                          << QStringList{QStringLiteral("61")};
    QTest::newRow("ancienne puis fraiche") << QList<DonneesUDP>{lecture(m, 70, QStringLiteral("1")),
                                                                lecture(m, 10, QStringLiteral("2"))}
                                           << false << 2.0 << QStringList{QStringLiteral("70")};
    // Dated ahead of the clock: its unsigned age is huge.
    QTest::newRow("datee dans le futur")
        << QList<DonneesUDP>{lecture(m, -5, QStringLiteral("1"))} << true << 0.0
        << QStringList{QStringLiteral("4294967291")};
    QTest::newRow("autres modules seulement")
        << QList<DonneesUDP>{lecture(QStringLiteral("a1b2"), 0, QStringLiteral("1")),
                             lecture(QStringLiteral("A1B20"), 0, QStringLiteral("1"))}
        << true << 0.0 << QStringList();
    QTest::newRow("liste vide") << QList<DonneesUDP>() << true << 0.0 << QStringList();
}

void TestRadio::fraicheurDesLectures()
{
    QFETCH(QList<DonneesUDP>, lectures);
    QFETCH(bool, leve);
    QFETCH(double, attendu);
    QFETCH(QStringList, agesRejetes);

    fournir(lectures);
    QRadio radio(QStringLiteral("A1B2"), 0);
    radio.setEcrireLog(true);

    CaptureLog log;
    const Resultat r = extraire(radio);
    QCOMPARE(r.leve, leve);
    if (!leve)
        QCOMPARE(r.valeur, attendu);

    const QStringList rejets = log.contenant(QStringLiteral("Mesure trop ancienne de "));
    QCOMPARE(rejets.size(), agesRejetes.size());
    for (int i = 0; i < rejets.size(); ++i)
        QVERIFY2(
            rejets.at(i).contains(
                QStringLiteral(" Mesure trop ancienne de %1 secondes (").arg(agesRejetes.at(i))),
            qPrintable(rejets.at(i)));
    QCOMPARE(log.compter(QStringLiteral("Aucune mesure trouvée : envoi d'une exception")),
             leve ? 1 : 0);
}

void TestRadio::listeRelueAChaqueIndex()
{
    // The reading of the module lands while the walk is on its first index.
    int appels = 0;
    QRadio::sourceLectures = [&appels] {
        ++appels;
        QList<DonneesUDP> liste{lecture(QStringLiteral("C3D4"), 0, QStringLiteral("9"))};
        if (appels > 1)
            liste.append(lecture(QStringLiteral("A1B2"), 0, QStringLiteral("4.5")));
        return liste;
    };
    QRadio radio(QStringLiteral("A1B2"), 0);
    const Resultat r = extraire(radio);
    QVERIFY(!r.leve);
    QCOMPARE(r.valeur, 4.5);
}

void TestRadio::sansServiceNiLectures()
{
    // No service object in this program and no list given: nothing to read.
    QRadio radio(QStringLiteral("A1B2"), 0);
    const Resultat r = extraire(radio);
    QVERIFY(r.leve);
    QCOMPARE(r.code, -1);
}

void TestRadio::cycleAvecHistoriqueEtDefaut()
{
    QRadio radio(QStringLiteral("A1B2"), 1);
    fournir({lecture(QStringLiteral("A1B2"), 0, QStringLiteral("14.1:48.7"))});
    QCOMPARE(radio.getMesureEnCours(), 48.7);

    // The module falls silent: the history covers for it while it lasts.
    Horloge::avancer(61);
    QCOMPARE(radio.getMesureEnCours(), 48.7);
    QCOMPARE(radio.copieHistorique().size(), 1);
    Horloge::avancer(1800 - 61 + 1);
    QCOMPARE(radio.getMesureEnCours(), -55.0);

    // Within the start-up period the failure reaches the cycle instead.
    QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-539);
    bool leve = false;
    try {
        radio.getMesureEnCours();
    } catch (int code) {
        leve = code == -1;
    }
    QVERIFY(leve);
}

QTEST_GUILESS_MAIN(TestRadio)
#include "tst_radio.moc"
