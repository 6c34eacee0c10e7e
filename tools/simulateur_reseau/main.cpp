// simulateur_reseau: a radio network of modules that send real UDP frames to
// the acquisition service (see --help).

#include "arretsursignal.h"
#include "modulesimule.h"
#include "simulateurreseau.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace {
const char *const DESCRIPTION =
    "Simulates the modules of a 6LoWPAN radio network as the border router\n"
    "forwards them: each module sends its frames as UDP datagrams, on its own\n"
    "period, to the acquisition service (default [::1] and the port of\n"
    "ACQUISITIONRADIO_PORT, else 5042).\n"
    "\n"
    "A module is one line of key=value pairs (in the --config file, '#' starts a\n"
    "comment) or the argument of --module:\n"
    "  module=<address>       required, no ':'\n"
    "  parent=<address>       parent module (default BR: right under the border router)\n"
    "  type=<letter>          A C F G: one value; B D E: two (E adds the supply\n"
    "                         indicator); R Z: none (default A)\n"
    "  periode=<s>            seconds between frames (default 10)\n"
    "  decalage=<s>           first frame after this delay (default: staggered)\n"
    "  valeur=<pattern>       first value (default 20); valeur2=<pattern> second (50)\n"
    "  batterie=<pattern>     battery level (default 3.6)\n"
    "  alim=<pattern>         supply indicator of type E frames (default 0)\n"
    "  rank=<n>               routing rank (default 13 x (depth + 1), depth 1 under BR)\n"
    "  silence=<start>+<d>    no frame from <start> to <start>+<d> seconds after the\n"
    "                         start; silence=<start> keeps quiet for good; repeatable\n"
    "Patterns: a number | sinus(mean,amplitude,period_s) | rampe(start,step_per_frame)\n"
    "        | alterne(a,b,...) | hasard(min,max)\n"
    "\n"
    "Frames: the type letter, then ':'-separated fields: module, parent, rank in\n"
    "tenths, the values in tenths, battery in tenths, and for E the supply\n"
    "indicator: A0011:BR:260:215:36, B0012:0011:390:201:-52:36, R0030:BR:260:36.\n"
    "See tools/simulateur_reseau/exemple.conf.";

bool lireModules(const QString &chemin, QList<ModuleSimule> *modules, QString *erreur)
{
    QFile fichier(chemin);
    if (!fichier.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *erreur = QStringLiteral("%1: %2").arg(chemin, fichier.errorString());
        return false;
    }
    QTextStream flux(&fichier);
    flux.setCodec("UTF-8");
    int numero = 0;
    while (!flux.atEnd()) {
        QString ligne = flux.readLine();
        ++numero;
        const int commentaire = ligne.indexOf(QLatin1Char('#'));
        if (commentaire >= 0)
            ligne.truncate(commentaire);
        if (ligne.trimmed().isEmpty())
            continue;
        ModuleSimule m;
        QString raison;
        if (!ModuleSimule::lire(ligne, &m, &raison)) {
            *erreur = QStringLiteral("%1:%2: %3").arg(chemin).arg(numero).arg(raison);
            return false;
        }
        modules->append(m);
    }
    return true;
}

int erreur(const QString &texte)
{
    std::fprintf(stderr, "simulateur_reseau: %s\n", texte.toUtf8().constData());
    return 2;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("simulateur_reseau"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(DESCRIPTION));
    parser.addHelpOption();
    const QCommandLineOption optionConfig({QStringLiteral("c"), QStringLiteral("config")},
                                          QStringLiteral("File of modules, one per line."),
                                          QStringLiteral("file"));
    const QCommandLineOption optionModule({QStringLiteral("m"), QStringLiteral("module")},
                                          QStringLiteral("One module (repeatable)."),
                                          QStringLiteral("key=value ..."));
    const QCommandLineOption optionAdresse(QStringLiteral("adresse"),
                                           QStringLiteral("Destination address (default ::1)."),
                                           QStringLiteral("ipv6"));
    const QCommandLineOption optionPort(
        QStringLiteral("port"), QStringLiteral("Destination UDP port."), QStringLiteral("port"));
    const QCommandLineOption optionDuree(QStringLiteral("duree"),
                                         QStringLiteral("Stop after this many seconds."),
                                         QStringLiteral("s"));
    const QCommandLineOption optionUneFois(QStringLiteral("une-fois"),
                                           QStringLiteral("Send one frame per module and stop."));
    const QCommandLineOption optionSilencieux(QStringLiteral("silencieux"),
                                              QStringLiteral("Do not print the frames sent."));
    parser.addOptions({optionConfig, optionModule, optionAdresse, optionPort, optionDuree,
                       optionUneFois, optionSilencieux});
    parser.process(application);

    QList<ModuleSimule> modules;
    QString raison;
    if (parser.isSet(optionConfig) && !lireModules(parser.value(optionConfig), &modules, &raison))
        return erreur(raison);
    const QStringList descriptions = parser.values(optionModule);
    for (const QString &description : descriptions) {
        ModuleSimule m;
        if (!ModuleSimule::lire(description, &m, &raison))
            return erreur(raison);
        modules.append(m);
    }
    if (modules.isEmpty())
        return erreur(QStringLiteral("no module: give --config or --module (see --help)"));

    const QHostAddress adresse(parser.isSet(optionAdresse) ? parser.value(optionAdresse)
                                                           : QStringLiteral("::1"));
    if (adresse.isNull())
        return erreur(QStringLiteral("'%1' is not an IP address").arg(parser.value(optionAdresse)));
    QString textePort = parser.value(optionPort);
    if (textePort.isEmpty())
        textePort = qEnvironmentVariable("ACQUISITIONRADIO_PORT", QStringLiteral("5042"));
    bool ok = false;
    const uint port = textePort.toUInt(&ok);
    if (!ok || port == 0 || port > 65535)
        return erreur(QStringLiteral("'%1' is not a UDP port").arg(textePort));

    ArretSurSignal arret;
    QObject::connect(&arret, &ArretSurSignal::arretDemande, &application, &QCoreApplication::quit);
    SimulateurReseau reseau(modules, adresse, static_cast<quint16>(port),
                            !parser.isSet(optionSilencieux));
    QObject::connect(&reseau, &SimulateurReseau::termine, &application, &QCoreApplication::quit,
                     Qt::QueuedConnection);

    if (parser.isSet(optionDuree)) {
        const double secondes = parser.value(optionDuree).toDouble(&ok);
        if (!ok || secondes < 0)
            return erreur(QStringLiteral("--duree expects seconds"));
        QTimer::singleShot(static_cast<int>(secondes * 1000), &application,
                           &QCoreApplication::quit);
    }
    if (parser.isSet(optionUneFois))
        reseau.envoyerUneFois();
    else
        reseau.demarrer();
    return QCoreApplication::exec();
}
