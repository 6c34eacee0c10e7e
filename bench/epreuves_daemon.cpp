// The measures made on the real daemon process: its sustained rate against
// the bare replay, the serial link's ceiling, a burst, and its memory.

#include "daemonbanc.h"
#include "epreuves.h"
#include "rejeu.h"
#include "tableau.h"

#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

namespace {

constexpr double OBJECTIF_RAPPORT = 0.8;
constexpr double DEBIT_LIAISON = 128; // 115,200 baud to the border router
constexpr int TAILLE_RAFALE = 256;
constexpr double OBJECTIF_RSS_MIO = 20;
constexpr double OBJECTIF_CROISSANCE_MIO = 1;

void progres(const QString &texte)
{
    std::fprintf(stderr, "  %s\n", qPrintable(texte));
}

QString nombre(double v, int decimales = 0)
{
    return QString::number(v, 'f', decimales);
}

// One step at a given rate. It holds when every frame is stored, the kernel
// dropped none, and the daemon kept pace: at the last datagram it is at most
// a quarter of a second of frames behind (the socket buffer would otherwise
// hide a rate a little too high for a step of a few seconds).
struct Palier
{
    qint64 envoyees = 0, perdues = 0, pertesNoyau = 0, retard = 0;
    double cpuMsParTrame = 0;
    bool tenu = false;

    Palier(DaemonBanc &daemon, double parSeconde, double secondes)
    {
        const qint64 avant = daemon.lignes();
        const qint64 pertesAvant = daemon.pertesNoyau();
        const double cpuAvant = daemon.cpuSecondes();
        envoyees = daemon.envoyer(parSeconde, secondes);
        retard = avant + envoyees - daemon.lignes();
        perdues = avant + envoyees - daemon.attendreLignes(avant + envoyees);
        pertesNoyau = daemon.pertesNoyau() - pertesAvant;
        if (envoyees > 0)
            cpuMsParTrame = 1000 * (daemon.cpuSecondes() - cpuAvant) / envoyees;
        tenu = perdues == 0 && pertesNoyau == 0 && retard <= qMax(8.0, parSeconde / 4) &&
               !interrompu();
    }
    QString texte() const
    {
        return QStringLiteral("sent %1, lost %2, kernel drops %3, behind at the end %4, CPU "
                              "%5 ms/frame")
            .arg(envoyees)
            .arg(perdues)
            .arg(pertesNoyau)
            .arg(retard)
            .arg(cpuMsParTrame, 0, 'f', 2);
    }
};

QString mesure(const Reglages &r, const QString &texte)
{
    return r.court ? texte + QStringLiteral(" [court]") : texte;
}

} // namespace

void mesurerDebit(const Reglages &r, Tableau &tableau)
{
    std::fprintf(stderr, "a. bare replay, the daemon by steps, the bare replay again\n");
    // The disk's pace drifts with what else runs: the replay is taken before
    // and after the daemon's steps, and their mean is the reference.
    QTemporaryDir dossier; // on the disk of the daemon's sandbox
    const auto rejouer = [&](const QString &nom) {
        const Rejeu::Resultat rejeu = Rejeu::mesurer(dossier.filePath(nom), r.secondesRejeu);
        progres(QStringLiteral("replay: %1 frames in %2 s, CPU %3 ms/frame %4")
                    .arg(rejeu.trames)
                    .arg(rejeu.secondes, 0, 'f', 1)
                    .arg(rejeu.cpuMsParTrame(), 0, 'f', 2)
                    .arg(rejeu.erreur));
        return rejeu;
    };
    const Rejeu::Resultat avant = rejouer("avant.db");

    DaemonBanc daemon;
    QString erreur;
    double tenu = 0, echoue = 0;
    if (daemon.demarrer(DaemonBanc::Lancement(), &erreur)) {
        // Doubling until a step fails, then halving the interval, within a
        // bounded number of steps.
        double debit = qMax(16.0, avant.parSeconde() / 2);
        for (int i = 0; i < r.nbPaliersMax && !interrompu(); ++i) {
            const Palier p(daemon, debit, r.secondesPalier);
            progres(QStringLiteral("%1 frames/s: %2 -> %3")
                        .arg(nombre(debit), p.texte(), p.tenu ? "held" : "not held"));
            (p.tenu ? tenu : echoue) = debit;
            if (tenu > 0 && echoue > 0 && echoue / tenu < 1.05)
                break;
            debit = echoue == 0 ? debit * 2 : tenu == 0 ? debit / 2 : (tenu + echoue) / 2;
        }
    }
    daemon.arreter();
    const Rejeu::Resultat apres = rejouer("apres.db");

    const QString erreurRejeu = avant.erreur.isEmpty() ? apres.erreur : avant.erreur;
    const double reference = (avant.parSeconde() + apres.parSeconde()) / 2;
    tableau.information(
        mesure(r, "a. bare SQLite replay of the per-frame work, frames/s"),
        erreurRejeu.isEmpty()
            ? QStringLiteral("%1 (%2 before, %3 after)")
                  .arg(nombre(reference), nombre(avant.parSeconde()), nombre(apres.parSeconde()))
            : erreurRejeu);
    const double rapport = reference > 0 ? tenu / reference : 0;
    tableau.objectif(mesure(r, "a. daemon, frames/s with zero loss from 100 modules"),
                     erreur.isEmpty() ? nombre(tenu) : erreur,
                     QStringLiteral(">= %1 x replay").arg(OBJECTIF_RAPPORT), nombre(rapport, 3),
                     erreurRejeu.isEmpty() && rapport >= OBJECTIF_RAPPORT);
}

void mesurerLiaisonSerie(const Reglages &r, Tableau &tableau)
{
    std::fprintf(stderr, "b. 128 frames/s with a cycle every second, then a burst\n");
    DaemonBanc daemon;
    QString erreur;
    const QString nomLiaison = mesure(r, QStringLiteral("b. 128 frames/s for %1 s, -periode 1: "
                                                        "lost rows / kernel drops")
                                             .arg(r.secondesLiaison));
    const QString nomRafale = mesure(r, QStringLiteral("b. burst of %1 datagrams: lost rows / "
                                                       "kernel drops")
                                            .arg(TAILLE_RAFALE));
    DaemonBanc::Lancement lancement;
    lancement.arguments = QStringList{"-periode", "1"};
    if (!daemon.demarrer(lancement, &erreur)) {
        tableau.objectif(nomLiaison, erreur, "0 / 0", QString(), false);
        return;
    }
    QThread::sleep(2); // the first cycles, with the hourly save, have run

    const Palier p(daemon, DEBIT_LIAISON, r.secondesLiaison);
    progres(p.texte());
    tableau.objectif(
        nomLiaison,
        QStringLiteral("%1 / %2 of %3").arg(p.perdues).arg(p.pertesNoyau).arg(p.envoyees), "0 / 0",
        QString(), p.perdues == 0 && p.pertesNoyau == 0);

    const qint64 avant = daemon.lignes();
    const qint64 pertesAvant = daemon.pertesNoyau();
    const qint64 envoyees = daemon.rafale(TAILLE_RAFALE);
    const qint64 perdues = avant + envoyees - daemon.attendreLignes(avant + envoyees);
    const qint64 pertes = daemon.pertesNoyau() - pertesAvant;
    progres(QStringLiteral("burst: sent %1, lost %2, kernel drops %3")
                .arg(envoyees)
                .arg(perdues)
                .arg(pertes));
    tableau.objectif(nomRafale, QStringLiteral("%1 / %2").arg(perdues).arg(pertes), "0 / 0",
                     QString(), envoyees == TAILLE_RAFALE && perdues == 0 && pertes == 0);
}

void mesurerMemoire(const Reglages &r, Tableau &tableau)
{
    // Frames come at debitMemoire per second of real time; the daemon's clock
    // runs `acceleration` times faster, so that each module is heard every
    // 100 x acceleration / debitMemoire seconds of its time (15 s, the design
    // load, in the full run) and its one-hour history fills within minutes.
    // libfaketime shortens the daemon's sleeps by the same factor, SQLite's
    // busy wait included: a frame may then fail to be stored while a cycle
    // holds the file, hence the 1 % of loss allowed below.
    // The database is on tmpfs: this measure is about memory, not the disk.
    const double debit = r.debitMemoire;
    const double fenetre = 3600 / r.accelerationHorloge; // the history's hour, in real seconds
    std::fprintf(stderr, "d. resident memory: %g frames/s, daemon clock x%g, -periode %d\n", debit,
                 r.accelerationHorloge, r.periodeMemoire);
    DaemonBanc daemon;
    QString erreur;
    const QString nomRss =
        mesure(r, QStringLiteral("d. daemon VmRSS after warm-up (history of %1 frames), MiB")
                      .arg(qRound(debit * fenetre)));
    const QString nomCroissance =
        mesure(r, QStringLiteral("d. VmRSS growth over %1 frames, MiB").arg(r.tramesMemoire));
    DaemonBanc::Lancement lancement;
    lancement.arguments = QStringList{"-periode", QString::number(r.periodeMemoire)};
    lancement.acceleration = r.accelerationHorloge;
    lancement.baseEnMemoire = true;
    if (!daemon.demarrer(lancement, &erreur)) {
        tableau.objectif(nomRss, erreur, "<= 20", QString(), false);
        return;
    }
    // Warm-up: the history's hour and two cycles, so that the history has
    // been as long as it will ever be (freed entries do not lower VmRSS).
    const qint64 avant = daemon.lignes();
    const qint64 pertesAvant = daemon.pertesNoyau();
    qint64 envoyees = daemon.envoyer(debit, fenetre + 2 * r.periodeMemoire + 2);
    daemon.attendreLignes(avant + envoyees);
    const qint64 rssDebut = daemon.statusKio();
    const qint64 anonDebut = daemon.statusKio("RssAnon");

    envoyees += daemon.envoyer(debit, r.tramesMemoire / debit);
    const qint64 perdues = avant + envoyees - daemon.attendreLignes(avant + envoyees);
    QThread::sleep(static_cast<unsigned long>(r.periodeMemoire) + 1); // one more cycle
    const qint64 rssFin = daemon.statusKio();
    // Anonymous pages are the heap; the rest is mostly code and data of the
    // libraries, mapped as it is first used.
    progres(QStringLiteral("VmRSS %1 KiB after warm-up (RssAnon %2), %3 KiB at the end (RssAnon "
                           "%4); %5 of %6 frames lost, kernel drops %7")
                .arg(rssDebut)
                .arg(anonDebut)
                .arg(rssFin)
                .arg(daemon.statusKio("RssAnon"))
                .arg(perdues)
                .arg(envoyees)
                .arg(daemon.pertesNoyau() - pertesAvant));

    const double mioDebut = rssDebut / 1024.0, croissance = (rssFin - rssDebut) / 1024.0;
    tableau.objectif(nomRss, nombre(mioDebut, 2), "<= 20", nombre(mioDebut / OBJECTIF_RSS_MIO, 3),
                     rssDebut > 0 && mioDebut <= OBJECTIF_RSS_MIO);
    // Frames lost are frames the daemon never handled: beyond 1 % the growth
    // would be taken over fewer frames than it says.
    const QString perte = perdues ? QStringLiteral(" (%1 frames lost)").arg(perdues) : QString();
    tableau.objectif(nomCroissance, nombre(croissance, 2) + perte, "<= 1",
                     nombre(croissance / OBJECTIF_CROISSANCE_MIO, 3),
                     rssDebut > 0 && rssFin > 0 && perdues * 100 <= envoyees &&
                         croissance <= OBJECTIF_CROISSANCE_MIO);
}
