// The channel connection base: history, default value, fall-back on failure,
// the start-up grace period, last-frame tracking and the cycle-managing kind.
#include "faux_ps.h"

#include "capturelog.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "connexions/qconnexionrj45avecgestioncycle.h"

#include <QtTest>

#include <memory>

namespace {

const QDateTime T0(QDate(2026, 11, 15), QTime(12, 51, 4));

// A channel whose next measurement the test decides: a value, or a failure
// thrown the way the radio channels throw it.
class ConnexionEssai : public QConnexionRJ45
{
public:
    using QConnexionRJ45::QConnexionRJ45;

    double getMesureEnCoursSousType() override
    {
        if (echoue)
            throw -1;
        return valeur;
    }
    QString genererIdTrame() override { return QStringLiteral("essai"); }

    bool echoue = false;
    double valeur = 0.0;
};

class CycleEssai : public QConnexionRJ45AvecGestionCycle
{
public:
    using QConnexionRJ45AvecGestionCycle::QConnexionRJ45AvecGestionCycle;
    double getMesureEnCoursSousType() override { return 0.0; }
    QString genererIdTrame() override { return {}; }
};

// The outcome of one cycle: the value, or the integer that was thrown.
struct Resultat
{
    bool leve = false;
    int code = 0;
    double valeur = 0.0;
};

Resultat mesurer(QConnexionRJ45 &c)
{
    Resultat r;
    try {
        r.valeur = c.getMesureEnCours();
    } catch (int code) {
        r.leve = true;
        r.code = code;
    }
    return r;
}

QList<long> cles(const QConnexionRJ45 &c)
{
    return c.copieHistorique().keys();
}

long secondes(const QDateTime &d)
{
    return static_cast<long>(d.toSecsSinceEpoch());
}

} // namespace

class TestConnexions : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void historiqueLimiteDAge_data();
    void historiqueLimiteDAge();
    void historiqueUneValeurParSeconde();
    void historiqueLimiteDeNombre();
    void ancienneMesure_data();
    void ancienneMesure();

    void echecPendantEtApresDemarrage_data();
    void echecPendantEtApresDemarrage();
    void lignesDeValeurNulle_data();
    void lignesDeValeurNulle();
    void formatDesNombres();

    void reponseEnregistreSonInstant();
    void trameEnTexte_data();
    void trameEnTexte();
    void ajouterDerniereTrameRemplaceSansDetruire();
    void supprimerDerniereTrameRetireToutesLesOccurrences();
    void recupererDerniereTrame();

    void traitementCycleUneFoisParMinute_data();
    void traitementCycleUneFoisParMinute();
    void etatsDeCycle_data();
    void etatsDeCycle();
    void cyclesAGerer();

private:
    std::unique_ptr<FauxPs> ps;
};

void TestConnexions::initTestCase()
{
    // The base writes its lines by default, one ps call each: a quick fake
    // keeps the suite fast and the memory field predictable.
    ps = std::make_unique<FauxPs>();
    QVERIFY(ps->estValide());
}

void TestConnexions::init()
{
    Horloge::figer(T0);
    QConnexionRJ45::dh_demarrage = T0.addSecs(-3600);
}

void TestConnexions::cleanupTestCase()
{
    Horloge::liberer();
    ps.reset();
}

void TestConnexions::historiqueLimiteDAge_data()
{
    QTest::addColumn<int>("nbMinutes");
    QTest::addColumn<int>("age");
    QTest::addColumn<bool>("gardee");

    QTest::newRow("3 min, a la limite") << 0 << 180 << true;
    QTest::newRow("3 min, une seconde de trop") << 0 << 181 << false;
    QTest::newRow("30 min, a la limite") << 30 << 1800 << true;
    QTest::newRow("30 min, une seconde de trop") << 30 << 1801 << false;
}

void TestConnexions::historiqueLimiteDAge()
{
    QFETCH(int, nbMinutes);
    QFETCH(int, age);
    QFETCH(bool, gardee);

    // nbMinutes 0 stands for the one-argument constructor and its default.
    std::unique_ptr<ConnexionEssai> c =
        nbMinutes == 0 ? std::make_unique<ConnexionEssai>(QStringLiteral("essai"))
                       : std::make_unique<ConnexionEssai>(QStringLiteral("essai"), nbMinutes);
    c->setEcrireLog(false);
    c->setValeurDefaut(-7.0);
    c->ajouterDansHistorique(21.5);
    Horloge::avancer(age);

    QCOMPARE(c->getDerniereMesureHistorique(), gardee ? 21.5 : -7.0);
    QCOMPARE(c->copieHistorique().size(), gardee ? 1 : 0);
}

void TestConnexions::historiqueUneValeurParSeconde()
{
    ConnexionEssai c(QStringLiteral("essai"));
    c.setEcrireLog(false);
    c.valeur = 3.0;
    c.getMesureEnCours();
    c.valeur = 4.0;
    c.getMesureEnCours();

    const QMap<long, double> h = c.copieHistorique();
    QCOMPARE(h.size(), 1);
    QCOMPARE(h.value(secondes(T0)), 4.0);
}

void TestConnexions::historiqueLimiteDeNombre()
{
    ConnexionEssai c(QStringLiteral("essai"));
    c.setEcrireLog(false);
    c.setNbValeursHistorique(2);
    for (double v : {1.0, 2.0}) {
        c.ajouterDansHistorique(v);
        Horloge::avancer(1);
    }
    QCOMPARE(cles(c), (QList<long>{secondes(T0), secondes(T0) + 1}));

    c.ajouterDansHistorique(3.0);
    QCOMPARE(cles(c), (QList<long>{secondes(T0) + 1, secondes(T0) + 2}));
    QCOMPARE(c.getDerniereMesureHistorique(), 3.0);

    // Age still applies on top of the count.
    Horloge::avancer(180);
    QCOMPARE(cles(c), (QList<long>{secondes(T0) + 1, secondes(T0) + 2}));
    c.purgerAnciennesMesuresHistorique();
    QCOMPARE(cles(c), QList<long>{secondes(T0) + 2});
}

void TestConnexions::ancienneMesure_data()
{
    QTest::addColumn<int>("n");
    QTest::addColumn<bool>("trouvee");
    QTest::addColumn<double>("attendue");

    // Entries 10, 5 and 0 seconds old, holding 10, 5 and 0.5.
    QTest::newRow("exactement n secondes") << 10 << true << 10.0;
    QTest::newRow("la plus ancienne dans la fenetre") << 9 << true << 5.0;
    QTest::newRow("fenetre nulle") << 0 << true << 0.5;
    QTest::newRow("seuil dans le futur") << -1 << false << 0.0;
}

void TestConnexions::ancienneMesure()
{
    QFETCH(int, n);
    QFETCH(bool, trouvee);
    QFETCH(double, attendue);

    ConnexionEssai c(QStringLiteral("essai"));
    c.setEcrireLog(false);
    Horloge::figer(T0.addSecs(-10));
    c.ajouterDansHistorique(10.0);
    Horloge::avancer(5);
    c.ajouterDansHistorique(5.0);
    Horloge::avancer(5);
    c.ajouterDansHistorique(0.5);

    bool drapeau = false;
    QCOMPARE(c.getAncienneMesureDeNSecondes(n, &drapeau), attendue);
    QCOMPARE(drapeau, trouvee);

    bool laisse = true;
    if (!trouvee) {
        c.getAncienneMesureDeNSecondes(n, &laisse);
        QVERIFY(laisse);
    }
}

void TestConnexions::echecPendantEtApresDemarrage_data()
{
    QTest::addColumn<qint64>("depuisDemarrage");
    QTest::addColumn<bool>("avecHistorique");
    QTest::addColumn<bool>("leve");
    QTest::addColumn<double>("valeur");
    QTest::addColumn<QString>("reste");

    QTest::newRow("100 s") << qint64(100) << false << true << 0.0 << QStringLiteral("440");
    QTest::newRow("539 s") << qint64(539) << true << true << 0.0 << QStringLiteral("1");
    QTest::newRow("540 s, historique vide") << qint64(540) << false << false << -55.0 << QString();
    QTest::newRow("600 s, historique") << qint64(600) << true << false << 8.25 << QString();
    // The clock was set back before the start: the grace period is over.
    QTest::newRow("horloge reculee") << qint64(-30) << false << false << -55.0 << QString();
}

void TestConnexions::echecPendantEtApresDemarrage()
{
    QFETCH(qint64, depuisDemarrage);
    QFETCH(bool, avecHistorique);
    QFETCH(bool, leve);
    QFETCH(double, valeur);
    QFETCH(QString, reste);

    QConnexionRJ45::dh_demarrage = T0.addSecs(-depuisDemarrage);
    ConnexionEssai c(QStringLiteral("essai"));
    c.setValeurDefaut(-55.0);
    if (avecHistorique) {
        Horloge::avancer(-20);
        c.ajouterDansHistorique(8.25);
        Horloge::avancer(20);
    }
    const QMap<long, double> avant = c.copieHistorique();

    c.echoue = true;
    CaptureLog log;
    const Resultat r = mesurer(c);

    QCOMPARE(r.leve, leve);
    const QStringList grace = log.contenant(QStringLiteral("pendant la période de démarrage"));
    if (leve) {
        QCOMPARE(r.code, -1);
        QCOMPARE(grace.size(), 1);
        QVERIFY2(grace.first().contains(
                     QStringLiteral(" Erreur de récupération de valeur ignorée car pendant la "
                                    "période de démarrage (reste %1 sec.) (VSZ = ")
                         .arg(reste)),
                 qPrintable(grace.first()));
    } else {
        QCOMPARE(r.valeur, valeur);
        QVERIFY(grace.isEmpty());
    }
    // The value taken back from the history is never stored again.
    QCOMPARE(c.copieHistorique(), avant);
    QCOMPARE(log.compter(QStringLiteral(" Mesure non récupérée suite à Exception (VSZ")), 1);
}

void TestConnexions::lignesDeValeurNulle_data()
{
    QTest::addColumn<bool>("echoue");
    QTest::addColumn<double>("mesure");
    QTest::addColumn<double>("defaut");
    QTest::addColumn<QStringList>("presentes");
    QTest::addColumn<QStringList>("absentes");

    const QString nulle = QStringLiteral("getMesureEnCours = ");
    const QString suite = QStringLiteral("Suite à exception sur récupération de la mesure du "
                                         "capteur, valeur récupérée de l'historique = ");
    const QString derniere = QStringLiteral("Dernière mesure récupérée de l'historique = ");

    QTest::newRow("mesure nulle") << false << 0.0 << 0.0
                                  << QStringList{nulle + QStringLiteral("0 (VSZ"),
                                                 QStringLiteral("Ajout dans l'historique : 0 (")}
                                  << QStringList{derniere};
    QTest::newRow("mesure non nulle")
        << false << 12.5 << 0.0 << QStringList{QStringLiteral("Ajout dans l'historique : 12.5 (")}
        << QStringList{nulle, derniere};
    QTest::newRow("echec, defaut -55")
        << true << 0.0 << -55.0 << QStringList{derniere + QStringLiteral("-55 (VSZ")}
        << QStringList{suite, nulle, QStringLiteral("Ajout dans l'historique")};
    QTest::newRow("echec, defaut nul")
        << true << 0.0 << 0.0
        << QStringList{suite + QStringLiteral("0 (VSZ"), derniere + QStringLiteral("0 (VSZ"),
                       nulle + QStringLiteral("0 (VSZ")}
        << QStringList{QStringLiteral("Ajout dans l'historique")};
}

void TestConnexions::lignesDeValeurNulle()
{
    QFETCH(bool, echoue);
    QFETCH(double, mesure);
    QFETCH(double, defaut);
    QFETCH(QStringList, presentes);
    QFETCH(QStringList, absentes);

    ConnexionEssai c(QStringLiteral("essai"));
    c.setValeurDefaut(defaut);
    c.echoue = echoue;
    c.valeur = mesure;

    CaptureLog log;
    const Resultat r = mesurer(c);
    QVERIFY(!r.leve);
    QCOMPARE(r.valeur, echoue ? defaut : mesure);
    for (const QString &texte : qAsConst(presentes))
        QVERIFY2(log.compter(texte) == 1, qPrintable(texte));
    for (const QString &texte : qAsConst(absentes))
        QVERIFY2(log.compter(texte) == 0, qPrintable(texte));
}

void TestConnexions::formatDesNombres()
{
    ConnexionEssai c(QStringLiteral("essai"), 2);
    CaptureLog log;
    c.ajouterDansHistorique(1234567.0);

    const QString cle = QString::number(secondes(T0));
    const QString limite = QString::number(secondes(T0) - 120);
    const QStringList attendues = {
        QStringLiteral("Ajout dans l'historique : 1.23457e+06"),
        QStringLiteral("purge des mesures ancienne de plus de 120 secondes."),
        QStringLiteral("%1 (iter.key()) < %2 (tdiff) ?").arg(cle, limite),
    };
    const QStringList lignes = log.lignes();
    QCOMPARE(lignes.size(), attendues.size());
    const QString suffixe = QStringLiteral(" (VSZ = ") + FauxPs::memoireParDefaut() + ')';
    for (int i = 0; i < lignes.size(); ++i)
        QCOMPARE(lignes.at(i),
                 QString(QStringLiteral("Sun Nov 15 12:51:04 2026 ") + attendues.at(i) + suffixe));

    log.vider();
    bool trouve = false;
    c.getAncienneMesureDeNSecondes(30, &trouve);
    QCOMPARE(log.compter(QStringLiteral(
                 " Recherche d'une ancienne mesure sur 30 secondes (1 mesures en mémoire) (VSZ")),
             1);
    QCOMPARE(log.compter(QStringLiteral(" Mesure seconde %1 >= %2 (mesure=1.23457e+06) (VSZ")
                             .arg(cle, QString::number(secondes(T0) - 30))),
             1);
    QCOMPARE(log.compter(QStringLiteral(" Ancienne mesure trouvée : 1.23457e+06 (VSZ")), 1);
}

void TestConnexions::reponseEnregistreSonInstant()
{
    CaptureLog log;
    const QConnexionRJ45::Reponse r(QStringLiteral("A1B2:1"), QByteArray("\x05\xA0", 2));
    QCOMPARE(r.date, T0);
    QCOMPARE(r.donnees, QByteArray("\x05\xA0", 2));
    QCOMPARE(log.lignes().size(), 2);
    QVERIFY(log.lignes().at(0).startsWith(QStringLiteral("Reponse : 0x")));
    QVERIFY(log.lignes().at(0).endsWith(QStringLiteral(" : id=A1B2:1")));
    QVERIFY(log.lignes().at(1).contains(QStringLiteral(" malloc donnees ")));

    log.vider();
    const QConnexionRJ45::Reponse vide;
    QVERIFY(vide.id.isEmpty() && vide.donnees.isEmpty() && vide.date.isNull());
    QCOMPARE(log.lignes().size(), 1);
    QVERIFY(log.lignes().at(0).startsWith(QStringLiteral("Reponse() 0x")));
    QVERIFY(log.lignes().at(0).endsWith(QStringLiteral(" : vide")));
}

void TestConnexions::trameEnTexte_data()
{
    QTest::addColumn<QByteArray>("trame");
    QTest::addColumn<QString>("texte");

    QTest::newRow("sans zeros de tete") << QByteArray("\x05\xA0\x00\xFF", 4) << "5 A0 0 FF";
    QTest::newRow("un octet") << QByteArray("\x0A", 1) << "A";
    QTest::newRow("vide") << QByteArray() << "";
    QTest::newRow("octets hauts") << QByteArray("\x80\x10", 2) << "80 10";
}

void TestConnexions::trameEnTexte()
{
    QFETCH(QByteArray, trame);
    QFETCH(QString, texte);
    QCOMPARE(QConnexionRJ45::trameToString(trame), texte);
}

void TestConnexions::ajouterDerniereTrameRemplaceSansDetruire()
{
    ConnexionEssai c(QStringLiteral("essai"));
    QConnexionRJ45::Reponse a1(QStringLiteral("a"), "1");
    QConnexionRJ45::Reponse b(QStringLiteral("b"), "2");
    QConnexionRJ45::Reponse a2(QStringLiteral("a"), "3");
    QList<QConnexionRJ45::Reponse *> liste;

    CaptureLog log;
    c.ajouterDerniereTrame(&a1, &liste);
    c.ajouterDerniereTrame(&b, &liste);
    c.ajouterDerniereTrame(&a2, &liste);

    QCOMPARE(liste, (QList<QConnexionRJ45::Reponse *>{&a2, &b}));
    QCOMPARE(log.compter(QStringLiteral(" Ajout dernière trame id a nb=2 (VSZ")), 1);
    QCOMPARE(log.compter(QStringLiteral(" Dernières trames nb=2 (VSZ")), 2);
}

void TestConnexions::supprimerDerniereTrameRetireToutesLesOccurrences()
{
    ConnexionEssai c(QStringLiteral("essai"));
    c.setEcrireLog(false);
    QConnexionRJ45::Reponse a1(QStringLiteral("a"), "1");
    QConnexionRJ45::Reponse b(QStringLiteral("b"), "2");
    QConnexionRJ45::Reponse a2(QStringLiteral("a"), "3");
    QConnexionRJ45::Reponse casse(QStringLiteral("A"), "4");
    QList<QConnexionRJ45::Reponse *> liste{&a1, &b, &a2, &casse};

    c.supprimerDerniereTrame(QStringLiteral("a"), &liste);
    QCOMPARE(liste, (QList<QConnexionRJ45::Reponse *>{&b, &casse}));
    c.supprimerDerniereTrame(QStringLiteral("z"), &liste);
    QCOMPARE(liste.size(), 2);
}

void TestConnexions::recupererDerniereTrame()
{
    ConnexionEssai c(QStringLiteral("essai"));
    QList<QConnexionRJ45::Reponse *> liste;

    CaptureLog log;
    QCOMPARE(c.recupererDerniereTrame(QStringLiteral("b"), &liste), nullptr);
    const QStringList lignes = log.lignes();
    QCOMPARE(lignes.size(), 2);
    QVERIFY(lignes.at(0).contains(QStringLiteral(" Récupérer dernière trame id b nb=0 (VSZ")));
    QVERIFY(lignes.at(1).contains(QStringLiteral(" Dernières trames non trouvé (VSZ")));

    QConnexionRJ45::Reponse a(QStringLiteral("a"), "1");
    QConnexionRJ45::Reponse b(QStringLiteral("b"), "2");
    QConnexionRJ45::Reponse b2(QStringLiteral("b"), "3");
    liste = {&a, &b, &b2};
    log.vider();
    QCOMPARE(c.recupererDerniereTrame(QStringLiteral("b"), &liste), &b);
    QCOMPARE(log.compter(QStringLiteral(" Comparaison trame id a == b ? 0 (VSZ")), 1);
    QCOMPARE(log.compter(QStringLiteral(" Comparaison trame id b == b ? 1 (VSZ")), 1);
    QCOMPARE(log.compter(QStringLiteral("Comparaison")), 2);
    QCOMPARE(log.compter(QStringLiteral("non trouvé (VSZ")), 0);
}

void TestConnexions::traitementCycleUneFoisParMinute_data()
{
    QTest::addColumn<bool>("dateDefinie");
    QTest::addColumn<qint64>("decalageDate");
    QTest::addColumn<qint64>("attente");
    QTest::addColumn<bool>("possible");

    QTest::newRow("jamais traite") << false << qint64(0) << qint64(0) << true;
    QTest::newRow("traite il y a 59 s") << true << qint64(0) << qint64(59) << false;
    QTest::newRow("traite il y a 60 s") << true << qint64(0) << qint64(60) << true;
    QTest::newRow("date future, 89 s") << true << qint64(30) << qint64(89) << false;
    QTest::newRow("date future, 90 s") << true << qint64(30) << qint64(90) << true;
}

void TestConnexions::traitementCycleUneFoisParMinute()
{
    QFETCH(bool, dateDefinie);
    QFETCH(qint64, decalageDate);
    QFETCH(qint64, attente);
    QFETCH(bool, possible);

    CycleEssai c(QStringLiteral("cycle"));
    if (dateDefinie)
        c.setDateDernierTraitementCycle(Horloge::maintenant().addSecs(decalageDate));
    Horloge::avancer(attente);
    QCOMPARE(c.TraitementCyclePossible(), possible);
}

void TestConnexions::etatsDeCycle_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("premier");
    QTest::addColumn<QString>("second");
    QTest::addColumn<bool>("egaux");

    // Compared with {3, "Cuisson", "en cours"}.
    QTest::newRow("identiques") << 3 << "Cuisson"
                                << "en cours" << true;
    QTest::newRow("second texte different") << 3 << "Cuisson"
                                            << "terminé" << false;
    QTest::newRow("casse differente") << 3 << "cuisson"
                                      << "en cours" << false;
    QTest::newRow("code different") << 4 << "Cuisson"
                                    << "en cours" << false;
}

void TestConnexions::etatsDeCycle()
{
    QFETCH(int, code);
    QFETCH(QString, premier);
    QFETCH(QString, second);
    QFETCH(bool, egaux);

    QConnexionRJ45AvecGestionCycle::EtatCycle reference;
    reference.code = 3;
    reference.premierTexte = QStringLiteral("Cuisson");
    reference.secondTexte = QStringLiteral("en cours");
    QConnexionRJ45AvecGestionCycle::EtatCycle autre;
    autre.code = code;
    autre.premierTexte = premier;
    autre.secondTexte = second;

    QCOMPARE(reference.equals(autre), egaux);
    QCOMPARE(autre.equals(reference), egaux);
}

void TestConnexions::cyclesAGerer()
{
    CycleEssai c(QStringLiteral("cycle"), 5);
    QVERIFY(!c.aDesCyclesAGerer());
    QVERIFY(c.getDateDernierTraitementCycle().isNull());
    c.getLesEtatCycle()->append(QConnexionRJ45AvecGestionCycle::EtatCycle());
    QVERIFY(c.aDesCyclesAGerer());
    c.getLesEtatCycle()->clear();
    QVERIFY(!c.aDesCyclesAGerer());
}

QTEST_GUILESS_MAIN(TestConnexions)
#include "tst_connexions.moc"
