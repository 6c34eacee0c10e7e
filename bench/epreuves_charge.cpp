// The daemon under the loads that grow its memory: a flood of addresses each
// heard once (e), and an hour of frames at the serial link's ceiling (f). The
// sandbox is on tmpfs and frames go as fast as the daemon stores them: these
// measures are about memory and CPU, not the disk's pace.

#include "daemonbanc.h"
#include "epreuves.h"
#include "reseau.h"
#include "tableau.h"

#include <QElapsedTimer>
#include <QLocale>
#include <QThread>

#include <cstdio>

namespace {

constexpr double OBJECTIF_INONDATION_MIO = 64;
constexpr double OBJECTIF_PENTE = 1.25; // CPU per frame, last tenth against first
constexpr double OBJECTIF_HEURE_MIO = 96;
constexpr double DEBIT_LIAISON = 128;
constexpr int PERIODE = 20;

QString mesure(const Reglages &r, const QString &texte)
{
    return r.court ? texte + QStringLiteral(" [court]") : texte;
}

QString mio(qint64 kio)
{
    return QString::number(kio / 1024.0, 'f', 1);
}

// Frame k from an address of its own: no two frames of the flood share one.
QByteArray trameDistincte(qint64 k)
{
    return "A" + QByteArray::number(0x10000000 + k, 16) + ":br:20:215:36";
}

} // namespace

void mesurerInondation(const Reglages &r, Tableau &tableau)
{
    const int total = r.tramesInondation;
    const int dixieme = total / 10;
    std::fprintf(stderr, "e. %d frames from as many addresses, as fast as they are stored\n",
                 total);
    const QString nombre = QLocale(QLocale::English).toString(total);
    const QString nomRss =
        mesure(r, QStringLiteral("e. %1 frames from %1 addresses: peak VmRSS, MiB").arg(nombre));
    const QString nomPente =
        mesure(r, QStringLiteral("e. the same: CPU per frame, last tenth / first tenth"));
    DaemonBanc daemon;
    DaemonBanc::Lancement lancement;
    lancement.arguments = QStringList{"-periode", QString::number(PERIODE)};
    lancement.baseEnMemoire = true;
    QString erreur;
    if (!daemon.demarrer(lancement, &erreur)) {
        tableau.objectif(nomRss, erreur, "<= 64", QString(), false);
        return;
    }

    qint64 premiere = 0; // frames already made
    const auto envoyer = [&](qint64 nombreTrames) {
        const qint64 depart = premiere;
        premiere += nombreTrames;
        return daemon.envoyerAuRythme(nombreTrames,
                                      [depart](qint64 k) { return trameDistincte(depart + k); });
    };
    QElapsedTimer chrono;
    chrono.start();
    const double cpu0 = daemon.cpuSecondes();
    qint64 stockees = envoyer(dixieme);
    const double cpu1 = daemon.cpuSecondes();
    stockees += envoyer(total - 2 * dixieme);
    const double cpu2 = daemon.cpuSecondes();
    stockees += envoyer(dixieme);
    const double cpu3 = daemon.cpuSecondes();
    const double debut = 1000 * (cpu1 - cpu0) / dixieme, fin = 1000 * (cpu3 - cpu2) / dixieme;
    const qint64 pic = daemon.statusKio("VmHWM");
    std::fprintf(stderr,
                 "  %lld of %d stored in %.0f s; CPU %.3f ms/frame over the first tenth, %.3f over "
                 "the last; VmRSS %s MiB, peak %s MiB\n",
                 static_cast<long long>(stockees), total, chrono.elapsed() / 1000.0, debut, fin,
                 qPrintable(mio(daemon.statusKio())), qPrintable(mio(pic)));
    const bool complet = stockees == total && daemon.enMarche();
    const QString perte = complet ? QString() : QStringLiteral(" (%1 stored)").arg(stockees);
    tableau.objectif(nomRss, mio(pic) + perte, "<= 64",
                     QString::number(pic / 1024.0 / OBJECTIF_INONDATION_MIO, 'f', 3),
                     complet && pic > 0 && pic / 1024.0 <= OBJECTIF_INONDATION_MIO);
    const double pente = debut > 0 ? fin / debut : 0;
    tableau.objectif(nomPente,
                     QStringLiteral("%1 (%2 / %3 ms)")
                         .arg(pente, 0, 'f', 2)
                         .arg(fin, 0, 'f', 3)
                         .arg(debut, 0, 'f', 3),
                     QStringLiteral("<= %1").arg(OBJECTIF_PENTE),
                     QString::number(pente / OBJECTIF_PENTE, 'f', 3),
                     complet && debut > 0 && pente <= OBJECTIF_PENTE);
}

void mesurerHeureALaLiaison(const Reglages &r, Tableau &tableau)
{
    const int total = r.tramesHeure;
    std::fprintf(stderr, "f. %d frames of the 100 modules within the hour, then a cycle\n", total);
    const QString nomRss =
        mesure(r, QStringLiteral("f. VmRSS with %1 frames of history (an hour at 128 frames/s), "
                                 "MiB")
                      .arg(QLocale(QLocale::English).toString(total)));
    DaemonBanc daemon;
    DaemonBanc::Lancement lancement;
    lancement.arguments = QStringList{"-periode", QString::number(PERIODE)};
    lancement.baseEnMemoire = true;
    QString erreur;
    if (daemon.demarrer(lancement, &erreur)) {
        // Faster than 128 frames/s, so that none has left the hour of
        // history when the last arrives.
        QElapsedTimer chrono;
        chrono.start();
        const qint64 stockees = daemon.envoyerAuRythme(total, [](qint64 k) {
            return Reseau::trame(static_cast<int>(k % Reseau::NB_MODULES), static_cast<quint32>(k));
        });
        const double secondes = chrono.elapsed() / 1000.0;
        QThread::sleep(PERIODE + 1); // a cycle with the whole hour behind it
        const qint64 rss = daemon.statusKio(), pic = daemon.statusKio("VmHWM");
        std::fprintf(stderr,
                     "  %lld of %d stored in %.0f s (%.0f frames/s); VmRSS %s MiB, peak "
                     "%s MiB\n",
                     static_cast<long long>(stockees), total, secondes, stockees / secondes,
                     qPrintable(mio(rss)), qPrintable(mio(pic)));
        const bool valide = stockees == total && secondes < 3600 && daemon.enMarche();
        tableau.objectif(nomRss,
                         mio(pic) + (valide ? QString() : QStringLiteral(" (run not valid)")),
                         "<= 96", QString::number(pic / 1024.0 / OBJECTIF_HEURE_MIO, 'f', 3),
                         valide && pic > 0 && pic / 1024.0 <= OBJECTIF_HEURE_MIO);
    } else {
        tableau.objectif(nomRss, erreur, "<= 96", QString(), false);
    }
    daemon.arreter();
    // 128 frames/s from 100 modules: each module every 100/128 s.
    mesurerCycleAvecHistorique(r, tableau,
                               {"f", Reseau::NB_MODULES / DEBIT_LIAISON, 100, r.nbCyclesHeure});
}
