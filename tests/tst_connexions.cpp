// The channel connections: history, fall-back and grace period of the base, its
// log (memory field, val0 file, one ps per line), frames, cycles, radio channel.
#include "bacasable.h"
#include "capturelog.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45avecgestioncycle.h"
#include "connexions/qradio.h"

#include <QtTest>

Q_DECLARE_METATYPE(DonneesUDP)

namespace {

const QDateTime T0(QDate(2026, 11, 15), QTime(12, 51, 4));
const QString DATE_T0 = QStringLiteral("Sun Nov 15 12:51:04 2026");
const QString PID = QString::number(QCoreApplication::applicationPid());
const double RIEN = qQNaN(); // no value: the integer -1 was thrown
using Reponse = QConnexionRJ45::Reponse;
using Lus = QList<DonneesUDP>;

// A channel whose next measurement the test decides; it fails the way the
// radio channels do. The cycle-managing kind adds no measurement of its own.
class Essai : public QConnexionRJ45AvecGestionCycle
{
public:
    using QConnexionRJ45AvecGestionCycle::QConnexionRJ45AvecGestionCycle;
    double getMesureEnCoursSousType() override { return echoue ? throw -1 : valeur; }
    QString genererIdTrame() override { return {}; }
    bool echoue = false;
    double valeur = 0.0;
};

double mesurer(const std::function<double()> &mesure)
{
    try {
        return mesure();
    } catch (int e) {
        return e == -1 ? RIEN : e;
    }
}

// A reading of `module` dated `age` s before T0, battery 3.6, supply indicator 1.
DonneesUDP lu(const QString &valeur, qint64 age = 5, const QString &module = QStringLiteral("A1B2"))
{
    return DonneesUDP(T0.addSecs(-age), QStringLiteral("M"), module, QStringLiteral("0000"), 1.0,
                      valeur, 3.6, 1);
}

QString lire(const QString &chemin)
{
    QFile f(chemin);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// A column of the current data row.
template <typename T>
const T &col(const char *nom)
{
    return *static_cast<T *>(QTest::qData(nom, qMetaTypeId<T>()));
}

} // namespace

class TestConnexions : public QObject
{
    Q_OBJECT

    // Holds a ps put first in PATH: it records its arguments and prints
    // $SORTIE_PS, @PID@ standing for the PID of its caller, this program.
    QTemporaryDir ps;

private slots:
    void initTestCase()
    {
        QFile f(ps.filePath(QStringLiteral("ps")));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("#!/bin/sh\necho \"$*\" >> \"$(dirname \"$0\")/appels\"\n"
                "printf '%s' \"$SORTIE_PS\" | sed \"s/@PID@/$PPID/g\"\n");
        QVERIFY(f.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner));
        qputenv("PATH", ps.path().toLocal8Bit() + ':' + qgetenv("PATH"));
    }
    void init()
    {
        Horloge::figer(T0);
        QConnexionRJ45::dh_demarrage = T0.addSecs(-3600);
        QRadio::sourceLectures = {};
        qputenv("SORTIE_PS", "  PID   VSZ\n@PID@ 777");
        QFile::remove(ps.filePath(QStringLiteral("appels")));
    }

    void historique_data()
    {
        QTest::addColumn<int>("limite");     // nbValeursHistorique
        QTest::addColumn<QList<int>>("pas"); // seconds waited before measuring 1, 2, 3...
        QTest::addColumn<int>("attente");    // then before reading the history
        QTest::addColumn<QList<double>>("gardees");
        QTest::addColumn<int>("n");           // getAncienneMesureDeNSecondes(n)
        QTest::addColumn<double>("ancienne"); // 0: none found
        using L = QList<int>;
        using V = QList<double>;
        QTest::newRow("age limite") << -1 << L{0} << 180 << V{1} << 180 << 1.0;
        QTest::newRow("age limite + 1") << -1 << L{0} << 181 << V{} << 181 << 0.0;
        QTest::newRow("meme seconde") << -1 << L{0, 0} << 0 << V{2} << 0 << 2.0;
        QTest::newRow("2 au plus") << 2 << L{0, 1, 1} << 0 << V{2, 3} << 1 << 2.0;
        QTest::newRow("2 au plus, age") << 2 << L{0, 1, 1} << 180 << V{3} << 999 << 3.0;
    }
    void historique()
    {
        const auto pas = col<QList<int>>("pas");
        Essai c(QStringLiteral("essai"));
        c.setNbValeursHistorique(col<int>("limite"));
        for (int i = 0; i < pas.size(); ++i) {
            Horloge::avancer(pas.at(i));
            c.valeur = i + 1;
            QCOMPARE(c.getMesureEnCours(), c.valeur);
        }
        Horloge::avancer(col<int>("attente"));
        bool trouve = false;
        QCOMPARE(c.getAncienneMesureDeNSecondes(col<int>("n"), &trouve), col<double>("ancienne"));
        QCOMPARE(trouve, col<double>("ancienne") != 0.0);
        QCOMPARE(c.copieHistorique().values(), col<QList<double>>("gardees"));
    }

    void echec_data()
    {
        QTest::addColumn<int>("depuis");         // seconds since the start of the program
        QTest::addColumn<bool>("echoue");        // else it measures `valeur`
        QTest::addColumn<double>("valeur");      // also stored 20 s before, unless RIEN
        QTest::addColumn<double>("resultat");    // the default is -55
        QTest::addColumn<QStringList>("lignes"); // "!" first: no such line
        const QString nulle = QStringLiteral("getMesureEnCours = ");
        const QString suite = QStringLiteral("Suite à exception sur récupération de la mesure du "
                                             "capteur, valeur récupérée de l'historique = ");
        const QString derniere = QStringLiteral("Dernière mesure récupérée de l'historique = ");
        const QString grace =
            QStringLiteral(" Erreur de récupération de valeur ignorée car pendant "
                           "la période de démarrage (reste ");
        QTest::newRow("mesure nulle")
            << 3600 << false << 0.0 << 0.0 << QStringList{nulle + "0 (VSZ", '!' + derniere};
        QTest::newRow("mesure 12.5") << 3600 << false << 12.5 << 12.5 << QStringList{'!' + nulle};
        QTest::newRow("539 s") << 539 << true << RIEN << RIEN
                               << QStringList{grace + "1 sec.) (VSZ"};
        QTest::newRow("540 s") << 540 << true << RIEN << -55.0
                               << QStringList{derniere + "-55 (VSZ", '!' + suite, '!' + grace};
        QTest::newRow("0 de l'historique")
            << 3600 << true << 0.0 << 0.0
            << QStringList{suite + "0 (VSZ", derniere + "0 (VSZ", nulle + "0 (VSZ"};
        QTest::newRow("horloge reculee avant le demarrage")
            << -30 << true << RIEN << -55.0 << QStringList{'!' + grace};
    }
    void echec()
    {
        const double valeur = col<double>("valeur");
        Essai c(QStringLiteral("essai"));
        c.setValeurDefaut(-55.0);
        if (!qIsNaN(valeur))
            c.ajouterDansHistorique(valeur);
        Horloge::avancer(20);
        QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-col<int>("depuis"));
        c.valeur = valeur;
        c.echoue = col<bool>("echoue");
        CaptureLog log;
        QCOMPARE(mesurer([&c] { return c.getMesureEnCours(); }), col<double>("resultat"));
        for (const QString &l : col<QStringList>("lignes"))
            QVERIFY2(log.compter(l.mid(l.startsWith('!'))) == int(!l.startsWith('!')),
                     qPrintable(l));
        // A value taken back from the history or the default is not stored.
        QCOMPARE(c.copieHistorique().size(), int(!qIsNaN(valeur)) + int(!c.echoue));
    }

    void memoire()
    {
        // The first line that starts with the PID and a space, kept untrimmed.
        qputenv("SORTIE_PS", "  PID   VSZ\n  @PID@  9000\n@PID@ 1");
        QCOMPARE(QConnexionRJ45::getProcessMemoryUsage(), "PID   " + PID + "  9000");
        qputenv("SORTIE_PS", "@PID@0 10424");
        QCOMPARE(QConnexionRJ45::getProcessMemoryUsage(),
                 "PID " + PID + " non trouvé (" + QCoreApplication::applicationFilePath() + ')');
        QCOMPARE(lire(ps.filePath("appels")), QStringLiteral("-o pid,vsz\n-o pid,vsz\n"));
    }
    void lignesCoupees_data()
    {
        QTest::addColumn<bool>("actif");
        QTest::newRow("lignes de la voie actives") << true;
        QTest::newRow("lignes coupees (voie radio)") << false;
    }
    void lignesCoupees()
    {
        const bool actif = col<bool>("actif");
        BacASable bac;
        bac.activer();
        QRadio radio(QStringLiteral("A1B2"), 1);
        if (actif)
            radio.setEcrireLog(true);
        CaptureLog log;
        radio.ecrireLog(QStringLiteral("valeur nulle : 0"), true, false);
        QRadio::sourceLectures = [] { return Lus{lu("14.1:48.7", 0)}; };
        QCOMPARE(radio.getMesureEnCours(), 48.7);
        // The reading ages out after 60 s, the stored value after thirty minutes.
        Horloge::avancer(1800);
        QCOMPARE(radio.getMesureEnCours(), 48.7);
        Horloge::avancer(1);
        QCOMPARE(radio.getMesureEnCours(), -55.0);

        QCOMPARE(lire(bac.chemin(QStringLiteral("/var/log/aradio_val0.txt"))),
                 QString(DATE_T0 + " valeur nulle : 0\n"));
        const QStringList lignes = log.lignes();
        QCOMPARE(lignes.isEmpty(), !actif);
        QCOMPARE(lire(ps.filePath("appels")).count('\n'), lignes.size());
        const QString defaut = QStringLiteral("Sun Nov 15 13:21:05 2026 Dernière mesure récupérée "
                                              "de l'historique = -55 (VSZ = PID %1 777)");
        QCOMPARE(lignes.contains(defaut.arg(PID)), actif);
    }
    void trames()
    {
        QCOMPARE(QConnexionRJ45::trameToString(QByteArray("\x05\xA0\x00\xFF", 4)), "5 A0 0 FF");
        QCOMPARE(QConnexionRJ45::trameToString("\x0A"), "A");
        QCOMPARE(QConnexionRJ45::trameToString({}), "");
        Essai c(QStringLiteral("essai"));
        Reponse a1(QStringLiteral("a"), "1"), b(QStringLiteral("b"), "2");
        Reponse a2(QStringLiteral("a"), "3"), casse(QStringLiteral("A"), "4");
        QList<Reponse *> liste;
        QCOMPARE(c.recupererDerniereTrame(QStringLiteral("a"), &liste), nullptr);
        // A known id is replaced in place; the record it held stays the caller's.
        for (Reponse *r : {&a1, &b, &a2})
            c.ajouterDerniereTrame(r, &liste);
        QCOMPARE(liste, (QList<Reponse *>{&a2, &b}));
        liste = {&a1, &b, &a2, &casse};
        QCOMPARE(c.recupererDerniereTrame(QStringLiteral("a"), &liste), &a1);
        c.supprimerDerniereTrame(QStringLiteral("a"), &liste);
        QCOMPARE(liste, (QList<Reponse *>{&b, &casse}));
    }

    void traitementCycle_data()
    {
        QTest::addColumn<QDateTime>("date"); // of the last treatment
        QTest::addColumn<int>("attente");
        QTest::addColumn<bool>("possible");
        QTest::newRow("jamais") << QDateTime() << 0 << true;
        QTest::newRow("59 s") << T0 << 59 << false;
        QTest::newRow("60 s") << T0 << 60 << true;
        QTest::newRow("date future, 89 s") << T0.addSecs(30) << 89 << false;
    }
    void traitementCycle()
    {
        Essai c(QStringLiteral("essai"));
        c.setDateDernierTraitementCycle(col<QDateTime>("date"));
        Horloge::avancer(col<int>("attente"));
        QCOMPARE(c.TraitementCyclePossible(), col<bool>("possible"));
    }

    void radio_data()
    {
        QTest::addColumn<Lus>("lus");
        QTest::addColumn<bool>("contact");
        QTest::addColumn<int>("numero");
        QTest::addColumn<double>("attendu");
        QTest::addColumn<QString>("trace"); // a line written once
        const Lus l{lu("14.1:48.7")};
        QTest::newRow("premiere valeur") << l << false << 0 << 14.1 << "";
        QTest::newRow("seconde valeur") << l << false << 1 << 48.7 << "";
        QTest::newRow("batterie") << l << false << 2 << 3.6 << "";
        QTest::newRow("pas d'operande")
            << l << false << 3 << RIEN << "Pas d'opérande dans la valeur 14.1:48.7 (";
        QTest::newRow("sous-type negatif") << l << false << -1 << RIEN << "Pas d'opérande";
        QTest::newRow("apres une partie vide") << Lus{lu(":5")} << false << 1 << 5.0 << "";
        QTest::newRow("contact ferme") << Lus{lu("2.5")} << true << 0 << 1.0 << "";
        QTest::newRow("contact negatif") << Lus{lu("-1")} << true << 0 << 0.0 << "";
        QTest::newRow("contact, alimentation") << Lus{lu("0:0")} << true << 1 << 1.0 << "";
        QTest::newRow("60 s") << Lus{lu("7", 60)} << false << 0 << 7.0 << "";
        QTest::newRow("61 s") << Lus{lu("7", 61)} << false << 0 << RIEN
                              << "trop ancienne de 61 secondes (";
        QTest::newRow("70 s puis 10 s") << Lus{lu("1", 70), lu("2", 10)} << false << 0 << 2.0
                                        << "trop ancienne de 70 secondes (";
        QTest::newRow("datee dans le futur")
            << Lus{lu("1", -5)} << false << 0 << RIEN << "trop ancienne de 4294967291 secondes (";
        QTest::newRow("autres modules")
            << Lus{lu("1", 0, "a1b2"), lu("1", 0, "A1B20")} << false << 0 << RIEN << "";
        QTest::newRow("aucune lecture") << Lus{} << false << 0 << RIEN << "";
    }
    void radio()
    {
        const QString trace = col<QString>("trace");
        if (!col<Lus>("lus").isEmpty())
            QRadio::sourceLectures = [lus = col<Lus>("lus")] { return lus; };
        QRadio r(QStringLiteral("A1B2"), col<int>("numero"));
        r.estContact = col<bool>("contact");
        r.setEcrireLog(true);
        CaptureLog log;
        QCOMPARE(mesurer([&r] { return r.getMesureEnCoursSousType(); }), col<double>("attendu"));
        QCOMPARE(log.compter(" Aucune mesure trouvée : envoi d'une exception ("),
                 int(qIsNaN(col<double>("attendu"))));
        if (!trace.isEmpty())
            QCOMPARE(log.compter(trace), 1);
    }
};

QTEST_GUILESS_MAIN(TestConnexions)
#include "tst_connexions.moc"
