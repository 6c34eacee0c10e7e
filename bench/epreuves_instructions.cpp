// Instructions per frame, counted by callgrind rather than timed: the count
// does not depend on the machine's speed or load, and the board is a slow ARM
// where CPU, not the disk, may set the pace. The daemon's reception path
// (QServeurUdp::traiterDatagram and all it calls) against the bare replay of
// the same statements on SQLite's C API, both on the bench's 100 modules.

#include "daemonbanc.h"
#include "epreuves.h"
#include "rejeu.h"
#include "reseau.h"
#include "tableau.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <cstdio>

#include <valgrind/callgrind.h>

namespace {

constexpr double OBJECTIF_RAPPORT = 1.5;
constexpr int NB_TRAMES = 500;

// The events of a callgrind output file: its "summary:" line.
qint64 instructions(const QString &fichier)
{
    QFile f(fichier);
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression resume(QStringLiteral("^summary: (\\d+)"),
                                    QRegularExpression::MultilineOption);
    const QRegularExpressionMatch m = resume.match(QString::fromLatin1(f.readAll()));
    return m.hasMatch() ? m.captured(1).toLongLong() : -1;
}

// This very program, in its replay mode (main.cpp), under callgrind: it
// starts counting after the first round and stops after the last frame.
qint64 instructionsRejeu(const QString &dossier)
{
    const QString sortie = dossier + QStringLiteral("/rejeu.callgrind");
    QProcess valgrind;
    valgrind.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    valgrind.start(QStringLiteral("valgrind"),
                   {"--tool=callgrind", "--collect-atstart=no", "--callgrind-out-file=" + sortie,
                    QCoreApplication::applicationFilePath(), "--rejeu-instructions",
                    dossier + QStringLiteral("/rejeu.db"), QString::number(NB_TRAMES)});
    if (!valgrind.waitForFinished(-1) || valgrind.exitCode() != 0)
        return -1;
    return instructions(sortie);
}

// The daemon under callgrind, counting inside traiterDatagram only. The
// first round (one frame per module, inserting it) is cut off by a dump;
// the next dump holds the frames that update known modules, as the replay's.
qint64 instructionsDaemon(const QString &dossier, QString *erreur)
{
    const QString sortie = dossier + QStringLiteral("/daemon.callgrind");
    DaemonBanc daemon;
    DaemonBanc::Lancement lancement;
    lancement.arguments = QStringList{"-periode", "3600"};
    lancement.sous = QStringList{"valgrind", "--tool=callgrind", "--collect-atstart=no",
                                 "--toggle-collect=QServeurUdp::traiterDatagram*",
                                 "--callgrind-out-file=" + sortie};
    if (!daemon.demarrer(lancement, erreur))
        return -1;
    const auto trame = [](qint64 k) {
        return Reseau::trame(static_cast<int>((k + 1) % Reseau::NB_MODULES),
                             static_cast<quint32>(k + 1));
    };
    const auto vider = [&] {
        return QProcess::execute(QStringLiteral("callgrind_control"),
                                 {"-d", QString::number(daemon.pid())}) == 0;
    };
    // demarrer() sent frame 0 already.
    if (daemon.envoyerAuRythme(Reseau::NB_MODULES - 1, trame, 8) != Reseau::NB_MODULES - 1 ||
        !vider()) {
        *erreur = QStringLiteral("the daemon under valgrind did not store the first round");
        return -1;
    }
    const auto suite = [&](qint64 k) { return trame(k + Reseau::NB_MODULES - 1); };
    const qint64 stockees = daemon.envoyerAuRythme(NB_TRAMES, suite, 8);
    if (stockees != NB_TRAMES || !vider()) {
        *erreur = QStringLiteral("the daemon under valgrind stored %1 of %2 frames")
                      .arg(stockees)
                      .arg(NB_TRAMES);
        return -1;
    }
    daemon.arreter();
    return instructions(sortie + QStringLiteral(".2"));
}

} // namespace

int rejouerPourCallgrind(const QString &fichier, int nombre)
{
    if (!Rejeu::preparer(fichier).isEmpty())
        return 1;
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    const QString erreur = Rejeu::rejouer(fichier, nombre);
    CALLGRIND_TOGGLE_COLLECT;
    return erreur.isEmpty() ? 0 : 1;
}

void mesurerInstructions(const Reglages &r, Tableau &tableau)
{
    std::fprintf(stderr, "g. instructions per frame under callgrind, %d frames each\n", NB_TRAMES);
    const QString nom = QStringLiteral("g. instructions per frame (callgrind): daemon / bare "
                                       "replay%1")
                            .arg(r.court ? " [court]" : "");
    if (QStandardPaths::findExecutable(QStringLiteral("valgrind")).isEmpty()) {
        tableau.objectif(nom, QStringLiteral("valgrind is not installed"), "<= 1.5 x", QString(),
                         false);
        return;
    }
    QTemporaryDir dossier;
    QString erreur;
    const qint64 rejeu = instructionsRejeu(dossier.path());
    const qint64 daemon = instructionsDaemon(dossier.path(), &erreur);
    if (rejeu <= 0 || daemon <= 0) {
        tableau.objectif(nom, erreur.isEmpty() ? QStringLiteral("no count") : erreur, "<= 1.5 x",
                         QString(), false);
        return;
    }
    const double parTrameRejeu = double(rejeu) / NB_TRAMES,
                 parTrameDaemon = double(daemon) / NB_TRAMES;
    const double rapport = parTrameDaemon / parTrameRejeu;
    std::fprintf(stderr, "  daemon %lld, replay %lld instructions over %d frames\n",
                 static_cast<long long>(daemon), static_cast<long long>(rejeu), NB_TRAMES);
    tableau.objectif(nom,
                     QStringLiteral("%1 M / %2 M")
                         .arg(parTrameDaemon / 1e6, 0, 'f', 3)
                         .arg(parTrameRejeu / 1e6, 0, 'f', 3),
                     QStringLiteral("<= %1 x").arg(OBJECTIF_RAPPORT),
                     QString::number(rapport / OBJECTIF_RAPPORT, 'f', 3),
                     rapport <= OBJECTIF_RAPPORT);
}
