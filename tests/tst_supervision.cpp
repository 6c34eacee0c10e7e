// The border-router watchdog, over timelines of frames and checks on a moved clock.

#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "radio/gestion_radio.h"
#include "udp/qserveurudp.h"

#include <QRegularExpression>
#include <QtTest>

#include <cstring>

namespace {

// At `instant` s after the start, the events happen (an address: a frame from that module;
// -table / +table: the module table is lost / back with module 12 marked removed; -base /
// +base: the device database is lost / written), then the watchdog must do `action` only.
struct Etape
{
    int instant;
    const char *evenements = "";
    const char *action = "";
};

enum { ANALOGIQUE, RADIO };
const QStringList TYPES_VOIES = {"ANALOGIQUE", "RADIO"};
const char *const AUCUNE_TRAME =
    "RESTART TUNSLIP6 : Aucune trame reçu depuis le démarrage du programme";

gestion_radio module(const QByteArray &adresse, char present = 1)
{
    gestion_radio gr{};
    gr.present = present;
    std::strncpy(gr.numero, adresse.constData(), gestion_radio::LARGEUR_NUMERO - 1);
    return gr;
}

// An action line, then the calls the stub scripts must record for it.
QStringList attendus(const QString &action)
{
    if (action.isEmpty())
        return {};
    if (action.startsWith(QLatin1String("RESTART")))
        return {action, "tunslip6 stop", "tunslip6 start"};
    return {action, action.startsWith(QLatin1String("RESET")) ? "reset_br.sh" : "repair_br.sh"};
}

void ligne(const char *nom, const QVector<Etape> &etapes, int type = RADIO)
{
    QTest::newRow(nom) << type << etapes;
}

} // namespace

Q_DECLARE_METATYPE(QVector<Etape>)

class TstSupervision : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { Horloge::liberer(); }
    void chronologie_data();
    void chronologie();
};

void TstSupervision::chronologie_data()
{
    QTest::addColumn<int>("type"); // of channel 1, -1: no channel
    QTest::addColumn<QVector<Etape>>("etapes");

    // The constructor's restart ends at 2 s; module 14 talks to keep the tunnel rule quiet.
    ligne("aucune trame, puis horloge reculée avant le démarrage",
          {{302}, {303, "", AUCUNE_TRAME}, {-1000}, {-700}, {-699, "", AUCUNE_TRAME}});
    ligne("dernière trame, puis délais après redémarrage",
          {{10, "12"},
           {310},
           {311, "", "RESTART TUNSLIP6 : Dernière trame reçu il y a 301s (>300s)"},
           {513}, // last frame 503 s old, tunnel restarted 200 s ago
           {673, "14"},
           {674, "14", "REPAIR BR : Modules concernés : 12 (664 s) (>360s)"},
           {973, "14"},
           {974, "14", "RESET BR : Modules concernés : 12 (964 s) (>660s)"}});
    ligne("reset avant repair, chaque module nommé une fois",
          {{10, "12"},
           {340, "13"},
           {710, "14", "RESET BR : Modules concernés : 12 (700 s) (>660s)"},
           {1070, "14"},
           {1071, "14", "REPAIR BR : Modules concernés : 12 (1061 s), 13 (731 s) (>360s)"},
           {1371, "14", "RESET BR : Modules concernés : 13 (1031 s) (>660s)"},
           {1732, "14"},
           {1740, "12 14"},
           {2100, "14"},
           {2101, "14", "REPAIR BR : Modules concernés : 12 (361 s) (>360s)"},
           {2401, "14", "RESET BR : Modules concernés : 12 (661 s) (>660s)"}});
    ligne("sans instantané de la table",
          {{10, "12"},
           {800, "-table 14"},
           {801, "+table 14", "RESET BR : Modules concernés : 12 (791 s) (>660s)"}});
    // Module 13's frame then lies in the future: ages are unsigned differences.
    ligne("horloge reculée de dix minutes",
          {{10, "12"},
           {690, "13", "RESET BR : Modules concernés : 12 (680 s) (>660s)"},
           {100, "14"},
           {460, "14"},
           {461, "14", "REPAIR BR : Modules concernés : 12 (451 s), 13 (4294967067 s) (>360s)"}});
    const QVector<Etape> silence = {{10, "12"}, {5000}};
    ligne("aucune voie", silence, -1);
    ligne("voie analogique", silence, ANALOGIQUE);
    ligne("types des voies lus dès que la base existe",
          {{10, "-base"}, {5000}, {5001, "+base", AUCUNE_TRAME}});
}

void TstSupervision::chronologie()
{
    QFETCH(int, type);
    QFETCH(QVector<Etape>, etapes);

    const QDateTime debut = QDateTime::fromSecsSinceEpoch(1900000000);
    Horloge::figer(debut);
    CaptureLog capture;
    BacASable bac;
    bac.activer();
    DoublureApplication application;
    QVERIFY(application.creerZones());
    const QString base = bac.chemin(QStringLiteral("/var/base/itessalin.db"));
    QVERIFY(DoublureApplication::creerBaseAppareil(base, TYPES_VOIES));
    if (type >= 0)
        application.ecrireVoie(1, type, "ABCDEFGH:1:2", 1, 0.0);
    for (int slot = 0; slot < 3; ++slot)
        application.ecrireModule(slot, module(QByteArray::number(12 + slot)));

    QServeurUdp serveur;
    // Every start restarts the tunnel, pausing on the service's clock.
    QCOMPARE(bac.appels(), attendus(AUCUNE_TRAME).mid(1));
    QCOMPARE(Horloge::maintenant(), debut.addSecs(2));

    for (const Etape &etape : qAsConst(etapes)) {
        Horloge::figer(debut.addSecs(etape.instant));
        const QList<QByteArray> evenements = QByteArray(etape.evenements).split(' ');
        for (const QByteArray &e : evenements) {
            if (e.toInt() > 0)
                serveur.traiterDatagram("A" + e + ":1:10:215");
            else if (e == "-table")
                application.detruireZone(QStringLiteral("Zone_HF"));
            else if (e == "+table" && application.creerZone(QStringLiteral("Zone_HF")))
                application.ecrireModule(0, module("12", 0));
            else if (e == "-base")
                QVERIFY(QFile::remove(base));
            else if (e == "+base")
                QVERIFY(DoublureApplication::creerBaseAppareil(base, TYPES_VOIES));
        }
        const int appelsAvant = bac.appels().size();
        capture.vider();
        serveur.verifierSiBesoinRepairBr();

        // The action lines, without their date and "(serveur_udp)" prefix.
        QStringList obtenu = capture.lignes().filter(QRegularExpression(
            QStringLiteral("\\(serveur_udp\\) (RESTART TUNSLIP6|RESET BR|REPAIR BR) ")));
        obtenu.replaceInStrings(QRegularExpression(QStringLiteral("^.*\\(serveur_udp\\) ")), {});
        obtenu += bac.appels().mid(appelsAvant);
        const QString quand = QStringLiteral("%1 s : ").arg(etape.instant);
        QCOMPARE(quand + obtenu.join(" | "),
                 quand + attendus(QString::fromUtf8(etape.action)).join(" | "));
    }
}

QTEST_GUILESS_MAIN(TstSupervision)
#include "tst_supervision.moc"
