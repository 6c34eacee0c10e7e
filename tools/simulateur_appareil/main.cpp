// simulateur_appareil: the appliance's main application, simulated for
// people and scripts (see --help).

#include "arretsursignal.h"
#include "configurationappareil.h"
#include "lecteurlignes.h"
#include "simulateurappareil.h"

#include "commun/environnement.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include <cstdio>

namespace {
const char *const DESCRIPTION =
    "Plays the appliance's main application for the radio acquisition service:\n"
    "creates and holds the five shared segments (Zone_HF, Demande_enreg,\n"
    "Config_Voies_iTessalin, Config_iTessalin, Etat_iTessalin) and the device\n"
    "database <root>/var/base/itessalin.db with its channel types, publishes the\n"
    "channels of the configuration file and shows, every second, what the service\n"
    "publishes: each channel's value, the heartbeat, the save request, the\n"
    "border-router address and the radio module table. The segments live in\n"
    "$TMPDIR (the service must run with the same TMPDIR) and are removed when the\n"
    "simulator stops (SIGINT, SIGTERM or the command 'quitter').\n"
    "\n"
    "The root comes from ACQUISITIONRADIO_RACINE or --racine; one of them is required.\n"
    "\n"
    "Configuration file (one item per line, '#' starts a comment, \"quotes\" keep blanks):\n"
    "  type <name>          a channel type; the first line is type number 0 (default:\n"
    "                       Aucun, PT100, 4-20mA, Contact, RADIO, RADIO Contact)\n"
    "  voie <v> <type> <address> <numero> [<offset>]\n"
    "                       channel v (1-64); type by name or number; address text as\n"
    "                       the service splits it (module[:more:parts]); numero is the\n"
    "                       quantity taken from the module (0 first value, 1 second,\n"
    "                       2 battery; 1 = supply indicator for a contact channel);\n"
    "                       the border-router supervision only counts radio channels\n"
    "                       whose address has at least 8 characters\n"
    "  nb_voies <n>         channel count published in Config_iTessalin (default 64)\n"
    "  adresse_br <text>    border-router address already published\n"
    "See tools/simulateur_appareil/exemple.conf.\n"
    "\n"
    "Commands, one per line on standard input or in the --commandes file/FIFO:\n";
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("simulateur_appareil"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(DESCRIPTION) + SimulateurAppareil::aide());
    parser.addHelpOption();
    const QCommandLineOption optionConfig({QStringLiteral("c"), QStringLiteral("config")},
                                          QStringLiteral("Configuration file."),
                                          QStringLiteral("file"));
    const QCommandLineOption optionRacine(
        QStringLiteral("racine"),
        QStringLiteral("Sandbox root (instead of ACQUISITIONRADIO_RACINE)."),
        QStringLiteral("dir"));
    const QCommandLineOption optionCommandes(
        QStringLiteral("commandes"),
        QStringLiteral(
            "Also read commands from this FIFO or file (a missing path is created as a FIFO)."),
        QStringLiteral("path"));
    const QCommandLineOption optionSansTableau(
        QStringLiteral("sans-tableau"),
        QStringLiteral("No live table: print 'pret' when ready and one line per command."));
    const QCommandLineOption optionSuivre(
        QStringLiteral("suivre"),
        QStringLiteral("Show the last lines of this file under the table (repeatable)."),
        QStringLiteral("file"));
    const QCommandLineOption optionRaz(
        QStringLiteral("raz-battement"),
        QStringLiteral("Clear the heartbeat byte after each reading and show its age."));
    const QCommandLineOption optionBase(
        QStringLiteral("base-seulement"),
        QStringLiteral("Only write the device database, then exit."));
    const QCommandLineOption optionDuree(QStringLiteral("duree"),
                                         QStringLiteral("Stop after this many seconds."),
                                         QStringLiteral("s"));
    parser.addOptions({optionConfig, optionRacine, optionCommandes, optionSansTableau, optionSuivre,
                       optionRaz, optionBase, optionDuree});
    parser.process(application);

    if (parser.isSet(optionRacine))
        qputenv("ACQUISITIONRADIO_RACINE",
                QFile::encodeName(QFileInfo(parser.value(optionRacine)).absoluteFilePath()));
    if (Environnement::racine().isEmpty()) {
        std::fprintf(stderr, "simulateur_appareil: set ACQUISITIONRADIO_RACINE or --racine "
                             "(the simulator never writes into the real /var/base)\n");
        return 2;
    }

    ConfigurationAppareil configuration;
    QString erreur;
    if (parser.isSet(optionConfig) &&
        !configuration.lireFichier(parser.value(optionConfig), &erreur)) {
        std::fprintf(stderr, "simulateur_appareil: %s\n", erreur.toUtf8().constData());
        return 2;
    }

    OptionsAffichage affichage;
    affichage.tableau = !parser.isSet(optionSansTableau);
    affichage.razBattement = parser.isSet(optionRaz);
    affichage.fichiersSuivis = parser.values(optionSuivre);
    SimulateurAppareil simulateur(configuration, affichage);

    QDir().mkpath(QFileInfo(SimulateurAppareil::cheminBaseAppareil()).absolutePath());
    if (!simulateur.creerBaseAppareil(&erreur)) {
        std::fprintf(stderr, "simulateur_appareil: device database %s: %s\n",
                     SimulateurAppareil::cheminBaseAppareil().toUtf8().constData(),
                     erreur.toUtf8().constData());
        return 1;
    }
    if (parser.isSet(optionBase))
        return 0;

    ArretSurSignal arret;
    QObject::connect(&arret, &ArretSurSignal::arretDemande, &application, &QCoreApplication::quit);
    QObject::connect(&simulateur, &SimulateurAppareil::quitterDemande, &application,
                     &QCoreApplication::quit, Qt::QueuedConnection);

    if (!simulateur.creerZones(&erreur)) {
        std::fprintf(stderr, "simulateur_appareil: %s\n", erreur.toUtf8().constData());
        return 1;
    }

    LecteurLignes entree;
    entree.ouvrirEntreeStandard();
    QObject::connect(&entree, &LecteurLignes::ligne, &simulateur,
                     &SimulateurAppareil::recevoirCommande);
    LecteurLignes fichierCommandes;
    if (parser.isSet(optionCommandes)) {
        if (!fichierCommandes.ouvrirChemin(parser.value(optionCommandes), &erreur)) {
            std::fprintf(stderr, "simulateur_appareil: %s\n", erreur.toUtf8().constData());
            return 1;
        }
        QObject::connect(&fichierCommandes, &LecteurLignes::ligne, &simulateur,
                         &SimulateurAppareil::recevoirCommande);
    }

    if (parser.isSet(optionDuree)) {
        bool ok = false;
        const double secondes = parser.value(optionDuree).toDouble(&ok);
        if (!ok || secondes < 0) {
            std::fprintf(stderr, "simulateur_appareil: --duree expects seconds\n");
            return 2;
        }
        QTimer::singleShot(static_cast<int>(secondes * 1000), &application,
                           &QCoreApplication::quit);
    }

    if (!affichage.tableau) {
        std::fprintf(stdout, "pret\n");
        std::fflush(stdout);
    }
    simulateur.demarrerAffichage();
    const int code = QCoreApplication::exec();
    if (!affichage.tableau) {
        std::fprintf(stdout, "arret\n");
        std::fflush(stdout);
    }
    return code;
}
