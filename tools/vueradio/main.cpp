// vueradio: what the radio acquisition service sees and keeps, and whether it
// is healthy, for the people who service the appliance (see --help). It only
// reads: segments are attached read-only and databases opened read-only.

#include "arbreradio.h"
#include "compteurudp.h"
#include "lecturezones.h"
#include "miseenforme.h"
#include "rapport.h"
#include "rapportzones.h"
#include "rendusvg.h"
#include "resumebase.h"
#include "sante.h"
#include "tablemodules.h"

#include "commun/environnement.h"
#include "commun/horloge.h"
#include "radio/fonctions_bases.h"
#include "udp/qserveurudp.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace {

enum CodeSortie {
    TOUT_LU = 0,
    LIGNE_DE_COMMANDE = 1,
    SOURCE_ABSENTE = 2,
    SVG_IMPOSSIBLE = 3,
};

const char *const DESCRIPTION =
    "Shows what the radio acquisition service sees and keeps, without changing anything:\n"
    "segments are attached read-only, databases opened read-only, and a missing file is\n"
    "never created.\n"
    "\n"
    "Commands (default: tout):\n"
    "  table   the module table Zone_HF, one line per used slot: address, parent, present\n"
    "          byte, frame type, value, battery, hops, rank, rank step, reception and usage\n"
    "          rates (-: not computed yet), age of the last frame, state\n"
    "  arbre   the radio tree as indented text; with --dot as Graphviz DOT on standard\n"
    "          output; with --svg FILE drawn by Graphviz 'dot' when it is installed.\n"
    "          Each module shows its hops, rank step and reception rate\n"
    "  zones   Demande_enreg (save request, heartbeat), Config_iTessalin (border-router\n"
    "          address), Config_Voies_iTessalin (each configured channel) and the values\n"
    "          published in Etat_iTessalin\n"
    "  base    the radio database hf.db: rows per table, last frame per module, reception\n"
    "          rates of the last 24 hours\n"
    "  udp     the kernel's drop counter and queue of the service's UDP socket\n"
    "          (/proc/net/udp6)\n"
    "  tout    all of the above\n"
    "  sante   one screen on the service's health; --json prints it as one JSON object.\n"
    "          Critical: the daemon not running (its lock /run/acquisitionradio.lock not\n"
    "          held), no UDP socket on the port, a segment missing or below its minimum\n"
    "          size (Zone_HF 21600, Demande_enreg 82, Config_Voies_iTessalin 65 x 464,\n"
    "          Config_iTessalin 1174, Etat_iTessalin 8 + 8 x 65 bytes), the database\n"
    "          missing or not writable, less than 2 MiB free under /var/base.\n"
    "          Warning: datagrams dropped by the kernel since the socket was opened, no\n"
    "          frame stored for more than 360 s (or none yet), a tunnel or border-router\n"
    "          script missing or not executable, less than 20 MiB free.\n"
    "          Shown only: the heartbeat and save request as last seen, and the last\n"
    "          tunnel restart, reset and repair found in the journal (journalctl -u\n"
    "          acquisitionradio) or, without systemd or under a sandbox root, in\n"
    "          /var/log/acquisitionradio.log\n"
    "\n"
    "A module is silent when its last frame is more than 360 s old: past that age the\n"
    "service's border-router supervision names it in a repair (and past 660 s in a reset).\n"
    "\n"
    "Like the service: ACQUISITIONRADIO_RACINE is put in front of every file path\n"
    "(var/base/hf.db, var/base/itessalin.db, root/br_itessalin.txt,\n"
    "run/acquisitionradio.lock, var/log/acquisitionradio.log), ACQUISITIONRADIO_PORT\n"
    "replaces the port 5042, and the segments are found under TMPDIR.\n"
    "\n"
    "Exit status: 0 everything was read; 1 bad command line; 2 a segment, the database or\n"
    "the socket is missing (one line each on standard error, the rest is still shown);\n"
    "3 the SVG drawing could not be made.\n"
    "For sante the statuses mean something else, as monitoring tools expect: 0 ok,\n"
    "1 warning, 2 critical (a bad command line still gives 1).";

void ecrire(FILE *flux, const QString &texte)
{
    std::fputs(texte.toUtf8().constData(), flux);
    std::fflush(flux);
}

int terminer(const Rapport &r)
{
    ecrire(stdout, r.texte);
    QStringList absences = r.absences;
    absences.removeDuplicates(); // the table and the tree both read Zone_HF
    for (const QString &ligne : qAsConst(absences))
        ecrire(stderr, QStringLiteral("vueradio: ") + ligne + QLatin1Char('\n'));
    return r.absences.isEmpty() ? TOUT_LU : SOURCE_ABSENTE;
}

QString absenceZoneHF()
{
    return LectureZones::absence(QLatin1String(fonctions_bases::CLE_ZONE_HF));
}

Rapport arbreTexte(quint32 maintenant)
{
    Rapport r;
    const LectureZones::TableModules table = LectureZones::tableModules();
    if (table) {
        r.texte = ArbreRadio(table.get(), maintenant).texte();
    } else {
        r.texte = QStringLiteral("Radio tree\n");
        r.absent(absenceZoneHF());
    }
    return r;
}

int arbreDessine(quint32 maintenant, bool dot, const QString &svg)
{
    const LectureZones::TableModules table = LectureZones::tableModules();
    if (!table) {
        // Nothing on standard output: it may be piped into dot.
        Rapport r;
        r.absences.append(absenceZoneHF());
        return terminer(r);
    }
    const QString graphe = ArbreRadio(table.get(), maintenant).dot();
    if (dot)
        ecrire(stdout, graphe);
    if (svg.isEmpty())
        return TOUT_LU;
    QString erreur;
    if (!RenduSvg::rendre(graphe.toUtf8(), svg, &erreur)) {
        ecrire(stderr, QStringLiteral("vueradio: ") + erreur + QLatin1Char('\n'));
        return SVG_IMPOSSIBLE;
    }
    // Standard output may be carrying the DOT text.
    ecrire(dot ? stderr : stdout, QStringLiteral("vueradio: radio tree drawn into %1\n")
                                      .arg(QFileInfo(svg).absoluteFilePath()));
    return TOUT_LU;
}

QString entete(quint32 maintenant, quint16 port)
{
    const QString racine = Environnement::racine();
    return QStringLiteral("acquisitionradio inspector - %1 - root %2 - segments under %3 - "
                          "port %4\n")
        .arg(MiseEnForme::date(maintenant), racine.isEmpty() ? QStringLiteral("/") : racine,
             QDir::tempPath())
        .arg(port);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vueradio"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(DESCRIPTION));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("commande"),
                                 QStringLiteral("table, arbre, zones, base, udp, tout or sante."),
                                 QStringLiteral("[commande]"));
    const QCommandLineOption optionDot(QStringLiteral("dot"),
                                       QStringLiteral("arbre: print the tree as Graphviz DOT."));
    const QCommandLineOption optionSvg(
        QStringLiteral("svg"),
        QStringLiteral("arbre: draw the tree into this SVG file (needs dot)."),
        QStringLiteral("file"));
    const QCommandLineOption optionMaintenant(
        QStringLiteral("maintenant"),
        QStringLiteral("Take these Unix seconds as now for ages, silence and the 24 h window "
                       "(for data saved earlier, and for tests)."),
        QStringLiteral("seconds"));
    const QCommandLineOption optionJson(
        QStringLiteral("json"), QStringLiteral("sante: print the findings as one JSON object."));
    parser.addOptions({optionDot, optionSvg, optionMaintenant, optionJson});
    if (!parser.parse(QCoreApplication::arguments())) {
        ecrire(stderr, QStringLiteral("vueradio: %1 (see --help)\n").arg(parser.errorText()));
        return LIGNE_DE_COMMANDE;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        ecrire(stdout, parser.helpText());
        return TOUT_LU;
    }
    if (parser.isSet(QStringLiteral("version"))) {
        ecrire(stdout, QStringLiteral("vueradio " ACQUISITIONRADIO_VERSION "\n"));
        return TOUT_LU;
    }

    const QStringList positionnels = parser.positionalArguments();
    const QString commande = positionnels.value(0, QStringLiteral("tout"));
    const QStringList commandes = {QStringLiteral("table"), QStringLiteral("arbre"),
                                   QStringLiteral("zones"), QStringLiteral("base"),
                                   QStringLiteral("udp"),   QStringLiteral("tout"),
                                   QStringLiteral("sante")};
    const bool dessin = parser.isSet(optionDot) || parser.isSet(optionSvg);
    QString faute;
    if (!commandes.contains(commande))
        faute = QStringLiteral("unknown command '%1'").arg(commande);
    else if (positionnels.size() > 1)
        faute = QStringLiteral("one command at a time");
    else if (dessin && commande != QLatin1String("arbre"))
        faute = QStringLiteral("--dot and --svg go with arbre");
    else if (parser.isSet(optionJson) && commande != QLatin1String("sante"))
        faute = QStringLiteral("--json goes with sante");
    if (!faute.isEmpty()) {
        ecrire(stderr, QStringLiteral("vueradio: %1\nusage: vueradio [table|arbre [--dot] [--svg "
                                      "FILE]|zones|base|udp|tout|sante [--json]] (see --help)\n")
                           .arg(faute));
        return LIGNE_DE_COMMANDE;
    }
    if (parser.isSet(optionMaintenant)) {
        bool ok = false;
        const qint64 secondes = parser.value(optionMaintenant).toLongLong(&ok);
        if (!ok || secondes < 0 || secondes > 0xFFFFFFFFLL) {
            ecrire(stderr, QStringLiteral("vueradio: --maintenant takes Unix seconds\n"));
            return LIGNE_DE_COMMANDE;
        }
        Horloge::figer(QDateTime::fromSecsSinceEpoch(secondes));
    }
    const quint32 maintenant = Horloge::maintenantSecondes();
    const quint16 port = Environnement::portLiaison(QServeurUdp::PORT_DEFAUT);

    if (dessin)
        return arbreDessine(maintenant, parser.isSet(optionDot), parser.value(optionSvg));
    if (commande == QLatin1String("sante")) {
        const Sante::Bilan bilan = Sante::examiner(maintenant, port);
        if (parser.isSet(optionJson))
            std::fputs(Sante::json(bilan).constData(), stdout);
        else
            ecrire(stdout, Sante::texte(bilan));
        std::fflush(stdout);
        return static_cast<int>(bilan.niveau());
    }

    Rapport r;
    r.texte = entete(maintenant, port);
    const bool tout = commande == QLatin1String("tout");
    // Each source is read only when its section is asked for.
    const auto section = [&](const QString &nom, auto produire) {
        if (!tout && commande != nom)
            return;
        r.texte += QLatin1Char('\n');
        r.ajouter(produire());
    };
    section(QStringLiteral("table"), [&] { return TableModules::rendre(maintenant); });
    section(QStringLiteral("arbre"), [&] { return arbreTexte(maintenant); });
    section(QStringLiteral("zones"), [] { return RapportZones::rendre(); });
    section(QStringLiteral("base"), [&] { return ResumeBase::rendre(maintenant); });
    section(QStringLiteral("udp"), [&] { return CompteurUdp::rendre(port); });
    return terminer(r);
}
