// The border-router watchdog: tunnel restart, reset and repair decisions over
// a moved clock, on a server built in a sandbox with the main application's
// double and stub scripts that record their calls.

#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "radio/gestion_radio.h"
#include "udp/qserveurudp.h"

#include <QRegularExpression>
#include <QtTest>

#include <cstring>
#include <memory>

namespace {

const QStringList TYPES_VOIES = {QStringLiteral("ANALOGIQUE"), QStringLiteral("RADIO"),
                                 QStringLiteral("RADIO CONTACT")};
const int TYPE_ANALOGIQUE = 0;
const int TYPE_RADIO = 1;

const QStringList APPELS_RESTART = {QStringLiteral("tunslip6 stop"),
                                    QStringLiteral("tunslip6 start")};
const QStringList APPELS_RESET = {QStringLiteral("reset_br.sh")};
const QStringList APPELS_REPAIR = {QStringLiteral("repair_br.sh")};

const QString AUCUNE_TRAME =
    QStringLiteral("RESTART TUNSLIP6 : Aucune trame reçu depuis le démarrage du programme");

// A module that keeps talking, so that the tunnel rule stays quiet while
// other modules fall silent.
const char *const BAVARD = "14";

// What one call of the watchdog left behind.
struct Bilan
{
    QStringList messages; // server lines, without their date and "(serveur_udp)" prefix
    QStringList appels;   // scripts run during the call

    QStringList actions() const
    {
        QStringList resultat;
        for (const QString &m : messages) {
            if (m.startsWith(QLatin1String("RESTART TUNSLIP6")) ||
                m.startsWith(QLatin1String("RESET BR")) || m.startsWith(QLatin1String("REPAIR BR")))
                resultat.append(m);
        }
        return resultat;
    }
};

gestion_radio moduleTable(const char *adresse, char present = 1)
{
    gestion_radio gr;
    std::memset(&gr, 0, sizeof gr);
    gr.present = present;
    std::strncpy(gr.numero, adresse, gestion_radio::LARGEUR_NUMERO - 1);
    return gr;
}

} // namespace

class TstSupervision : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void constructionRedemarreLeTunnel();
    void sansVoieRadioRienNeSeFait_data();
    void sansVoieRadioRienNeSeFait();
    void redemarrageApresSilence_data();
    void redemarrageApresSilence();
    void redemarrageRetientResetEtRepair();
    void resetAvantRepairEtModulesNommesUneFois();
    void sansInstantaneDeLaTableNiResetNiRepair();
    void horlogeReculeTunnel();
    void horlogeReculeScripts();
    void typesVoiesChargesTantQueVides();

private:
    void demarrerServeur();
    void allerA(int secondes);
    void trame(const char *module);
    Bilan verifier();
    // Moves to `secondes`, lets the talkative module be heard, then checks.
    Bilan verifierAvecBavard(int secondes);
    QStringList messagesServeur() const;

    QDateTime debut;
    std::unique_ptr<CaptureLog> capture;
    std::unique_ptr<BacASable> bac;
    std::unique_ptr<DoublureApplication> application;
    std::unique_ptr<QServeurUdp> serveur;
};

void TstSupervision::init()
{
    debut = QDateTime::fromSecsSinceEpoch(1900000000);
    Horloge::figer(debut);
    capture = std::make_unique<CaptureLog>();
    bac = std::make_unique<BacASable>();
    QVERIFY(bac->estValide());
    bac->activer();
    application = std::make_unique<DoublureApplication>();
    QString erreur;
    QVERIFY2(application->creerZones(&erreur), qPrintable(erreur));
}

void TstSupervision::cleanup()
{
    serveur.reset();
    application.reset();
    bac.reset();
    capture.reset();
    Horloge::liberer();
}

void TstSupervision::demarrerServeur()
{
    QString erreur;
    QVERIFY2(DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"),
                                                    TYPES_VOIES, &erreur),
             qPrintable(erreur));
    application->ecrireVoie(1, TYPE_RADIO, "ABCDEFGH:1:2", 1, 0.0);
    application->ecrireVoie(2, TYPE_RADIO, "ABCDEFGH:1:3", 2, 0.0);
    application->ecrireModule(0, moduleTable("12"));
    application->ecrireModule(1, moduleTable("13"));
    application->ecrireModule(2, moduleTable(BAVARD));
    serveur = std::make_unique<QServeurUdp>();
}

void TstSupervision::allerA(int secondes)
{
    Horloge::figer(debut.addSecs(secondes));
}

void TstSupervision::trame(const char *module)
{
    serveur->traiterDatagram(QByteArray("A") + module + ":1:10:215");
}

QStringList TstSupervision::messagesServeur() const
{
    static const QRegularExpression prefixe(
        QStringLiteral("^\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d \\(serveur_udp\\) "));
    QStringList resultat;
    const QStringList lignes = capture->lignes();
    for (const QString &ligne : lignes) {
        const QRegularExpressionMatch m = prefixe.match(ligne);
        if (m.hasMatch())
            resultat.append(ligne.mid(m.capturedLength()));
    }
    return resultat;
}

Bilan TstSupervision::verifier()
{
    const int appelsAvant = bac->appels().size();
    capture->vider();
    serveur->verifierSiBesoinRepairBr();
    return {messagesServeur(), bac->appels().mid(appelsAvant)};
}

Bilan TstSupervision::verifierAvecBavard(int secondes)
{
    allerA(secondes);
    trame(BAVARD);
    return verifier();
}

void TstSupervision::constructionRedemarreLeTunnel()
{
    demarrerServeur();
    QCOMPARE(bac->appels(), APPELS_RESTART);
    // Logged even without "-log".
    QCOMPARE(messagesServeur().count(QStringLiteral("restartTunslip6()")), 1);
    // The pause between stop and start is taken on the service's clock.
    QCOMPARE(Horloge::maintenant(), debut.addSecs(2));
}

void TstSupervision::sansVoieRadioRienNeSeFait_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("adresse");

    QTest::newRow("aucune voie configurée") << -1 << QByteArray();
    QTest::newRow("adresse de 7 caractères") << TYPE_RADIO << QByteArray("ABCDEFG");
    QTest::newRow("voie d'un autre type") << TYPE_ANALOGIQUE << QByteArray("ABCDEFGH:1:2");
}

void TstSupervision::sansVoieRadioRienNeSeFait()
{
    QFETCH(int, type);
    QFETCH(QByteArray, adresse);
    demarrerServeur();
    application->effacerVoie(1);
    application->effacerVoie(2);
    if (type >= 0)
        application->ecrireVoie(1, type, adresse, 1, 0.0);
    serveur->setLog();
    allerA(10);
    trame("12");

    // Silent for far longer than every limit.
    allerA(5000);
    const Bilan bilan = verifier();
    const QStringList attendus = {
        QStringLiteral("début verifierSiBesoinRepairBr"),
        QStringLiteral("début verifierSiBesoinRepairBr fonctions_bases::getLesVoiesRadio"),
        QStringLiteral("début verifierSiBesoinRepairBr Test1"),
        QStringLiteral("verifierSiBesoinRepairBr : nb voies configurées en RADIO = 0"),
        QStringLiteral("début verifierSiBesoinRepairBr"),
        QStringLiteral("fin verifierSiBesoinRepairBr")};
    QCOMPARE(bilan.messages, attendus);
    QVERIFY(bilan.appels.isEmpty());
}

void TstSupervision::redemarrageApresSilence_data()
{
    QTest::addColumn<int>("instantTrame"); // -1: no frame at all
    QTest::addColumn<int>("instant");
    QTest::addColumn<QString>("action");

    // The constructor's own restart ends at 2 s.
    QTest::newRow("aucune trame, 300 s après le redémarrage") << -1 << 302 << QString();
    QTest::newRow("aucune trame, 301 s après le redémarrage") << -1 << 303 << AUCUNE_TRAME;
    QTest::newRow("dernière trame il y a 300 s") << 10 << 310 << QString();
    QTest::newRow("dernière trame il y a 301 s")
        << 10 << 311
        << QStringLiteral("RESTART TUNSLIP6 : Dernière trame reçu il y a 301s (>300s)");
}

void TstSupervision::redemarrageApresSilence()
{
    QFETCH(int, instantTrame);
    QFETCH(int, instant);
    QFETCH(QString, action);
    demarrerServeur();
    serveur->setLog();
    if (instantTrame >= 0) {
        allerA(instantTrame);
        trame("12");
    }

    allerA(instant);
    const Bilan bilan = verifier();
    if (action.isEmpty()) {
        QVERIFY(bilan.actions().isEmpty());
        QVERIFY(bilan.appels.isEmpty());
        QVERIFY(bilan.messages.contains(QStringLiteral("fin verifierSiBesoinRepairBr")));
        return;
    }
    QCOMPARE(bilan.actions(), QStringList{action});
    QCOMPARE(bilan.appels, APPELS_RESTART);
    // The socket is reopened if needed before the tunnel goes down, and the
    // call ends with the action, without its closing line.
    const int ouverture = bilan.messages.indexOf(QStringLiteral("début ouvrirSiNonOuvert"));
    const int restart = bilan.messages.indexOf(QStringLiteral("restartTunslip6()"));
    QVERIFY(ouverture >= 0);
    QVERIFY(restart > ouverture);
    QVERIFY(!bilan.messages.contains(QStringLiteral("fin verifierSiBesoinRepairBr")));
}

void TstSupervision::redemarrageRetientResetEtRepair()
{
    demarrerServeur();
    allerA(2);
    trame("12");

    allerA(303);
    Bilan bilan = verifier();
    QCOMPARE(bilan.actions(), QStringList{QStringLiteral(
                                  "RESTART TUNSLIP6 : Dernière trame reçu il y a 301s (>300s)")});
    QCOMPARE(bilan.appels, APPELS_RESTART);
    // The restart itself lasts 2 s: the hold-offs run from 305 s.

    // Last frame 503 s old, but the tunnel was restarted 200 s ago.
    allerA(505);
    bilan = verifier();
    QVERIFY(bilan.actions().isEmpty());
    QVERIFY(bilan.appels.isEmpty());

    // From now on the network talks; module 12 stays silent beyond both
    // limits, yet each script waits its own full period after the restart.
    bilan = verifierAvecBavard(665);
    QVERIFY(bilan.appels.isEmpty());
    bilan = verifierAvecBavard(666);
    QCOMPARE(bilan.actions(),
             QStringList{QStringLiteral("REPAIR BR : Modules concernés : 12 (664 s) (>360s)")});
    QCOMPARE(bilan.appels, APPELS_REPAIR);
    bilan = verifierAvecBavard(965);
    QVERIFY(bilan.appels.isEmpty());
    bilan = verifierAvecBavard(966);
    QCOMPARE(bilan.actions(),
             QStringList{QStringLiteral("RESET BR : Modules concernés : 12 (964 s) (>660s)")});
    QCOMPARE(bilan.appels, APPELS_RESET);
}

void TstSupervision::resetAvantRepairEtModulesNommesUneFois()
{
    struct Etape
    {
        int instant;
        const char *entendu; // a module heard just before the check, or null
        const char *action;  // the one action line expected, or null
    };
    // Without "-log": the action lines are written all the same.
    const Etape etapes[] = {
        {10, "12", nullptr},
        {340, "13", nullptr},
        // Both scripts are due; the reset goes first and is the only action.
        {710, nullptr, "RESET BR : Modules concernés : 12 (700 s) (>660s)"},
        // The reset holds the repair off for 360 s, not one second less.
        {1070, nullptr, nullptr},
        {1071, nullptr, "REPAIR BR : Modules concernés : 12 (1061 s), 13 (731 s) (>360s)"},
        {1371, nullptr, "RESET BR : Modules concernés : 13 (1031 s) (>660s)"},
        // Both have been named by both scripts: no one is named twice.
        {1732, nullptr, nullptr},
        {1740, "12", nullptr},
        {1750, nullptr, nullptr},
        {2100, nullptr, nullptr},
        // Heard again, then silent again: named again by each script.
        {2101, nullptr, "REPAIR BR : Modules concernés : 12 (361 s) (>360s)"},
        {2401, nullptr, "RESET BR : Modules concernés : 12 (661 s) (>660s)"},
    };

    demarrerServeur();
    for (const Etape &etape : etapes) {
        if (etape.entendu) {
            allerA(etape.instant);
            trame(etape.entendu);
            continue;
        }
        const Bilan bilan = verifierAvecBavard(etape.instant);
        const QString quand = QStringLiteral("à %1 s").arg(etape.instant);
        if (!etape.action) {
            QVERIFY2(bilan.appels.isEmpty(), qPrintable(quand));
            QVERIFY2(bilan.actions().isEmpty(), qPrintable(quand));
            continue;
        }
        const QString action = QString::fromUtf8(etape.action);
        QCOMPARE(bilan.actions(), QStringList{action});
        QCOMPARE(bilan.appels,
                 action.startsWith(QLatin1String("RESET")) ? APPELS_RESET : APPELS_REPAIR);
    }
}

void TstSupervision::sansInstantaneDeLaTableNiResetNiRepair()
{
    demarrerServeur();
    serveur->setLog();
    allerA(10);
    trame("12");

    application->detruireZone(QStringLiteral("Zone_HF"));
    Bilan bilan = verifierAvecBavard(800);
    QVERIFY(bilan.appels.isEmpty());
    QVERIFY(bilan.actions().isEmpty());
    QVERIFY(bilan.messages.contains(QStringLiteral("fin verifierSiBesoinRepairBr")));

    // The same silence is acted on as soon as the table can be read again,
    // even for a module that the main application has marked as removed.
    QVERIFY(application->creerZone(QStringLiteral("Zone_HF")));
    application->ecrireModule(0, moduleTable("12", 0));
    bilan = verifierAvecBavard(801);
    QCOMPARE(bilan.actions(),
             QStringList{QStringLiteral("RESET BR : Modules concernés : 12 (791 s) (>660s)")});
    QCOMPARE(bilan.appels, APPELS_RESET);
    // The call ends with its action.
    QVERIFY(!bilan.messages.contains(QStringLiteral("fin verifierSiBesoinRepairBr")));
}

void TstSupervision::horlogeReculeTunnel()
{
    demarrerServeur();
    // Set back to before the constructor's restart: the hold-off starts over
    // from the new time instead of looking long elapsed.
    allerA(-1000);
    QVERIFY(verifier().appels.isEmpty());
    allerA(-700);
    QVERIFY(verifier().appels.isEmpty());
    allerA(-699);
    const Bilan bilan = verifier();
    QCOMPARE(bilan.actions(), QStringList{AUCUNE_TRAME});
    QCOMPARE(bilan.appels, APPELS_RESTART);
}

void TstSupervision::horlogeReculeScripts()
{
    demarrerServeur();
    allerA(10);
    trame("12");
    allerA(690);
    trame("13");
    Bilan bilan = verifierAvecBavard(700);
    QCOMPARE(bilan.appels, APPELS_RESET);

    // Ten minutes back: module 13's frame now lies in the future and would
    // look silent for ever, but the reset and repair hold-offs start over.
    bilan = verifierAvecBavard(100);
    QVERIFY(bilan.appels.isEmpty());
    bilan = verifierAvecBavard(460);
    QVERIFY(bilan.appels.isEmpty());
    // Ages are unsigned differences: the frame from the future counts as
    // 2^32 - 229 s of silence.
    bilan = verifierAvecBavard(461);
    QCOMPARE(bilan.actions(),
             QStringList{QStringLiteral("REPAIR BR : Modules concernés : 12 (451 s), "
                                        "13 (4294967067 s) (>360s)")});
    QCOMPARE(bilan.appels, APPELS_REPAIR);
}

void TstSupervision::typesVoiesChargesTantQueVides()
{
    application->ecrireVoie(1, TYPE_RADIO, "ABCDEFGH:1:2", 1, 0.0);
    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    const QString compte = QStringLiteral("verifierSiBesoinRepairBr : nb voies configurées en "
                                          "RADIO = %1");

    // No device database yet: no channel type is known, so no radio channel.
    QVERIFY(verifier().messages.contains(compte.arg(0)));

    const QString base = bac->chemin("/var/base/itessalin.db");
    QVERIFY(DoublureApplication::creerBaseAppareil(base, TYPES_VOIES));
    QVERIFY(verifier().messages.contains(compte.arg(1)));

    // Once loaded, the names are kept whatever the database says later.
    QVERIFY(DoublureApplication::creerBaseAppareil(
        base, {QStringLiteral("ANALOGIQUE"), QStringLiteral("ANALOGIQUE")}));
    QVERIFY(verifier().messages.contains(compte.arg(1)));
}

QTEST_GUILESS_MAIN(TstSupervision)
#include "tst_supervision.moc"
