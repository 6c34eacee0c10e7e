// The service's performance bench: one run measures the daemon's sustained
// frame rate against a bare SQLite replay, the serial link's ceiling with
// cycles running and a burst, the acquisition cycle's duration at the design
// load, and the daemon's resident memory; it prints one table and exits
// non-zero when a goal is missed.

#include "epreuves.h"
#include "tableau.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QSysInfo>
#include <QThread>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

std::atomic<bool> arret{false};

extern "C" void surSignal(int)
{
    arret.store(true);
}

// The 1, 5 and 15 minute load averages.
QString chargeMoyenne()
{
    QFile fichier(QStringLiteral("/proc/loadavg"));
    if (!fichier.open(QIODevice::ReadOnly))
        return QStringLiteral("unknown");
    return QString::fromLatin1(fichier.readAll()).section(QLatin1Char(' '), 0, 2);
}

} // namespace

bool interrompu()
{
    return arret.load();
}

Reglages Reglages::pourCourt()
{
    Reglages r;
    r.court = true;
    r.secondesRejeu = 2;
    r.secondesPalier = 2;
    r.nbPaliersMax = 4;
    r.secondesLiaison = 10;
    r.nbCycles = 8;
    r.tramesMemoire = 3000;
    r.accelerationHorloge = 300;
    r.periodeMemoire = 1;
    r.tramesInondation = 20000;
    r.tramesHeure = 46080;
    r.nbCyclesHeure = 4;
    return r;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    // Run by measure g under callgrind: the replay's frames, nothing else.
    if (arguments.size() == 3 && arguments.first() == QLatin1String("--rejeu-instructions"))
        return rejouerPourCallgrind(arguments.at(1), arguments.at(2).toInt());
    const bool court = arguments.removeAll(QStringLiteral("--court")) > 0;
    // The measures asked for by letter; none named runs them all.
    const QStringList toutes{"a", "b", "c", "d", "e", "f", "g"};
    const QStringList choisies = arguments.isEmpty() ? toutes : arguments;
    for (const QString &lettre : choisies) {
        if (!toutes.contains(lettre)) {
            std::fprintf(stderr,
                         "usage: %s [--court] [a] [b] [c] [d] [e] [f] [g]\n  --court  a quick run: "
                         "shorter steps, fewer frames and cycles\n  a ... g  only these "
                         "measures (all by default)\n",
                         argv[0]);
            return 2;
        }
    }
    const Reglages reglages = court ? Reglages::pourCourt() : Reglages();

    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = surSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    Tableau tableau;
    const QList<QPair<QString, void (*)(const Reglages &, Tableau &)>> mesures = {
        {"a", mesurerDebit},       {"b", mesurerLiaisonSerie}, {"c", mesurerCycle},
        {"d", mesurerMemoire},     {"e", mesurerInondation},   {"f", mesurerHeureALaLiaison},
        {"g", mesurerInstructions}};
    for (const auto &mesure : mesures) {
        if (choisies.contains(mesure.first) && !interrompu())
            mesure.second(reglages, tableau);
    }

    // What else ran shows in the load average; TZ decides what a local time
    // conversion costs (unset, each one reads /etc/localtime's status).
    const QString titre =
        QStringLiteral("acquisitionradio bench%1, %2, %3 cores, %4, load average %5, TZ %6")
            .arg(reglages.court ? " (--court: quick run, figures indicative)" : "")
            .arg(QDateTime::currentDateTime().toString(Qt::ISODate))
            .arg(QThread::idealThreadCount())
            .arg(QSysInfo::prettyProductName(), chargeMoyenne(),
                 qEnvironmentVariableIsSet("TZ") ? qEnvironmentVariable("TZ") : "unset");
    std::printf("\n%s", qPrintable(tableau.texte(titre)));
    if (interrompu()) {
        std::printf("interrupted: the figures above are incomplete\n");
        return 1;
    }
    return tableau.toutAtteint() ? 0 : 1;
}
