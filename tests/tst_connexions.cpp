// The channel connections: history, fall-back and grace period of the base, its
// log (memory field, val0 file, one ps per line), cycles, the radio channel.
#include "bacasable.h"
#include "capturelog.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45avecgestioncycle.h"
#include "connexions/qradio.h"

#include <QtTest>

Q_DECLARE_METATYPE(DonneesUDP)

namespace {

const QDateTime T0(QDate(2026, 11, 15), QTime(12, 51, 4));
const QString DATE_T0 = "Sun Nov 15 12:51:04 2026";
const QString PID = QString::number(QCoreApplication::applicationPid());
const double RIEN = qQNaN(); // no value: the integer -1 was thrown
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

// A reading of module A1B2 dated `age` s before T0, battery 3.6, supply indicator 1.
DonneesUDP lu(const QString &valeur, qint64 age = 5)
{
    return DonneesUDP(T0.addSecs(-age), "M", "A1B2", "0000", 1.0, valeur, 3.6, 1);
}

// The channel's reading source over a fixed list: the rang-th record of the module.
QRadio::SourceLectures lecteur(const Lus &lus)
{
    return [lus](const QString &module, int rang, DonneesUDP *d) {
        for (const DonneesUDP &l : lus) {
            if (l.module == module && rang-- == 0)
                return *d = l, true;
        }
        return false;
    };
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
        QFile f(ps.filePath("ps"));
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
        // The first line that starts with the caller's PID and a blank, kept untrimmed.
        qputenv("SORTIE_PS", "  PID   VSZ\n@PID@0 1\n  @PID@  777\n@PID@ 2");
        QFile::remove(ps.filePath("appels"));
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
        Essai c("essai");
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
        const QString nulle = "getMesureEnCours = ", histo = "Dernière mesure récupérée de "
                                                             "l'historique = ";
        const QString suite = "Suite à exception sur récupération de la mesure du capteur, "
                              "valeur récupérée de l'historique = ";
        const QString grace = " Erreur de récupération de valeur ignorée car pendant la période "
                              "de démarrage (reste ";
        // clang-format off
        QTest::newRow("0") << 3600 << false << 0.0 << 0.0 << QStringList{nulle + '0', '!' + histo};
        QTest::newRow("12.5") << 3600 << false << 12.5 << 12.5 << QStringList{'!' + nulle};
        QTest::newRow("539 s") << 539 << true << RIEN << RIEN << QStringList{grace + "1 sec.)"};
        QTest::newRow("540 s") << 540 << true << RIEN << -55.0
                               << QStringList{histo + "-55 (VSZ", '!' + suite, '!' + grace};
        QTest::newRow("0 de l'historique") << 3600 << true << 0.0 << 0.0
            << QStringList{suite + "0 (VSZ", histo + "0 (VSZ", nulle + "0 (VSZ"};
        QTest::newRow("-30 s") << -30 << true << RIEN << -55.0 << QStringList{'!' + grace};
        // clang-format on
    }
    void echec()
    {
        const double valeur = col<double>("valeur");
        Essai c("essai");
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

    // A radio channel writes no ordinary line unless asked, each one costing a ps
    // run; its val0 lines always; its stored value lasts thirty minutes.
    void journalDeLaVoieRadio()
    {
        BacASable bac;
        bac.activer();
        QRadio radio("A1B2", 1);
        CaptureLog log;
        radio.ecrireLog("valeur nulle : 0", true, false);
        QRadio::sourceLectures = lecteur(Lus{lu("14.1:48.7", 0)});
        QCOMPARE(radio.getMesureEnCours(), 48.7);
        Horloge::avancer(1800);
        QCOMPARE(radio.getMesureEnCours(), 48.7);
        QCOMPARE(lire(bac.chemin("/var/log/aradio_val0.txt")), DATE_T0 + " valeur nulle : 0\n");
        QVERIFY(log.lignes().isEmpty() && !QFile::exists(ps.filePath("appels")));
        radio.setEcrireLog(true);
        Horloge::avancer(1);
        QCOMPARE(radio.getMesureEnCours(), -55.0);
        const QString defaut = "Sun Nov 15 13:21:05 2026 Dernière mesure récupérée de "
                               "l'historique = -55 (VSZ = PID   %1  777)";
        QVERIFY(log.lignes().contains(defaut.arg(PID)));
        QCOMPARE(lire(ps.filePath("appels")),
                 QString("-o pid,vsz\n").repeated(log.compter("(VSZ")));
        qputenv("SORTIE_PS", "@PID@0 10424");
        QCOMPARE(QConnexionRJ45::getProcessMemoryUsage(),
                 "PID " + PID + " non trouvé (" + QCoreApplication::applicationFilePath() + ')');
    }

    // A device handles a cycle once a minute at most.
    void traitementCycle()
    {
        Essai c("essai");
        QVERIFY(c.TraitementCyclePossible()); // never handled yet
        c.setDateDernierTraitementCycle(T0);
        Horloge::avancer(59);
        QVERIFY(!c.TraitementCyclePossible());
        Horloge::avancer(1);
        QVERIFY(c.TraitementCyclePossible());
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
        QTest::newRow("batterie") << l << false << 2 << 3.6 << "";
        QTest::newRow("pas d'operande")
            << l << false << 3 << RIEN << "Pas d'opérande dans la valeur 14.1:48.7 (";
        QTest::newRow("sous-type negatif") << l << false << -1 << RIEN << "Pas d'opérande";
        QTest::newRow("apres une partie vide") << Lus{lu(":5")} << false << 1 << 5.0 << "";
        QTest::newRow("contact ferme") << Lus{lu("2.5")} << true << 0 << 1.0 << "";
        QTest::newRow("contact negatif") << Lus{lu("-1")} << true << 0 << 0.0 << "";
        QTest::newRow("contact, alimentation") << Lus{lu("0:0")} << true << 1 << 1.0 << "";
        QTest::newRow("60 s") << Lus{lu("7", 60)} << false << 0 << 7.0 << "";
        QTest::newRow("61 s puis 10 s") << Lus{lu("1", 61), lu("2", 10)} << false << 0 << 2.0
                                        << "trop ancienne de 61 secondes (";
        QTest::newRow("datee dans le futur")
            << Lus{lu("1", -5)} << false << 0 << RIEN << "trop ancienne de 4294967291 secondes (";
    }
    void radio()
    {
        const QString trace = col<QString>("trace");
        QRadio::sourceLectures = lecteur(col<Lus>("lus"));
        QRadio r("A1B2", col<int>("numero"));
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
