// One acquisition cycle timed in this process, with 64 radio channels to
// publish and an hour of frame history behind it: at the design load (c: 100
// modules each heard every 15 s, 24,000 frames) or at the serial link's
// ceiling (f: 128 frames a second, 460,800 frames). The clock is the
// service's own, frozen and moved by hand, so that the hourly save of the
// rates runs in the warm-up cycle only and never in a timed one.

#include "bacasable.h"
#include "daemonbanc.h"
#include "doublureapplication.h"
#include "epreuves.h"
#include "reseau.h"
#include "tableau.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"

#include <QElapsedTimer>
#include <QLocale>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace {

constexpr double DUREE_HISTORIQUE = 3600;

// The frames of one round, one per module, through the reception path
// itself (decoding, module update, database, "Zone_HF").
void recevoir(QServeurUdp &serveur, quint32 tour)
{
    for (int m = 0; m < Reseau::NB_MODULES; ++m)
        serveur.traiterDatagram(Reseau::trame(m, tour));
}

} // namespace

void mesurerCycle(const Reglages &r, Tableau &tableau)
{
    mesurerCycleAvecHistorique(r, tableau, {"c", 15, 20, r.nbCycles});
}

void mesurerCycleAvecHistorique(const Reglages &r, Tableau &tableau, const ProfilCycle &profil)
{
    const double OBJECTIF_MS = profil.objectifMs;
    const QString objectif = QStringLiteral("<= %1").arg(OBJECTIF_MS);
    // Each round is one frame of every module; the last comes with the first cycle.
    const int nbTours = qRound(DUREE_HISTORIQUE / profil.ecartSecondes);
    const int nbHistorique = nbTours * Reseau::NB_MODULES;
    const auto instant = [&](int tour) { return qRound64(tour * profil.ecartSecondes * 1000); };
    std::fprintf(stderr, "%s. %d acquisition cycles in this process, %d frames of history\n",
                 qPrintable(profil.lettre), profil.nbCycles, nbHistorique);
    const QString nom = QStringLiteral("%1. cycle, 64 channels, 100 modules, %2 frames of "
                                       "history: %3 ms over %4 cycles%5")
                            .arg(profil.lettre, QLocale(QLocale::English).toString(nbHistorique));
    const QString court = r.court ? QStringLiteral(" [court]") : QString();
    BacASable bac;
    bac.activer(BacASable::portLibre());
    DoublureApplication doublure;
    QString erreur;
    if (!Reseau::preparerAppareil(bac, doublure, 0.0, &erreur)) {
        tableau.objectif(nom.arg("median").arg(profil.nbCycles).arg(court), erreur, objectif,
                         QString(), false);
        return;
    }

    const QDateTime debut = QDateTime::currentDateTime();
    Horloge::figer(debut);
    acq = new AcquisitionRadio;
    QServeurUdp &serveur = acq->serveurUdp();
    // The hour before the first round, oldest first, as the reception
    // thread would have appended it (frame times in UTC, as it stamps them).
    for (int tour = nbTours - 1; tour > 0; --tour) {
        for (int m = 0; m < Reseau::NB_MODULES; ++m) {
            const Reseau::Lecture l = Reseau::lecture(m, 0);
            serveur.ajouterInfoTrame(QServeurUdp::_info_trame(
                debut.toUTC().addMSecs(-instant(tour)), QString::fromLatin1(l.module),
                Reseau::pasDeRang(m), QString::fromLatin1(l.parent), m < 10 ? 9 : 0));
        }
    }
    recevoir(serveur, 0);
    acq->recuperer_mesures(); // registers the channels and makes the hourly save
    const QString base = bac.chemin("/var/base/hf.db");
    const qint64 tauxApresChauffe = compterLignes(base, "mesures_taux");

    QVector<double> durees;
    int historiqueMin = INT_MAX, historiqueMax = 0;
    for (int i = 1; i <= profil.nbCycles && !interrompu(); ++i) {
        Horloge::figer(debut.addMSecs(instant(i)));
        recevoir(serveur, static_cast<quint32>(i));
        QElapsedTimer chrono;
        chrono.start();
        acq->recuperer_mesures();
        durees.append(chrono.nsecsElapsed() / 1e6);
        const int taille = serveur.copieInfosTrame().size();
        historiqueMin = qMin(historiqueMin, taille);
        historiqueMax = qMax(historiqueMax, taille);
    }

    // Where a cycle's time goes: the server's tasks that walk the history,
    // each timed alone in the same state.
    const auto mediane = [](QVector<double> valeurs) {
        std::sort(valeurs.begin(), valeurs.end());
        return valeurs.isEmpty() ? 0.0 : valeurs.at(valeurs.size() / 2);
    };
    const auto chronometrer = [&](void (QServeurUdp::*tache)()) {
        QVector<double> fois;
        for (int i = 0; i < 5 && !interrompu(); ++i) {
            QElapsedTimer chrono;
            chrono.start();
            (serveur.*tache)();
            fois.append(chrono.nsecsElapsed() / 1e6);
        }
        return QString::number(mediane(fois), 'f', 1);
    };
    const QList<QPair<QString, QString>> detail = {
        {"calculerTauxInfosTrames", chronometrer(&QServeurUdp::calculerTauxInfosTrames)},
        {"supprimerAnciennesInfosTrames",
         chronometrer(&QServeurUdp::supprimerAnciennesInfosTrames)},
        {"verifierSiBesoinRepairBr", chronometrer(&QServeurUdp::verifierSiBesoinRepairBr)}};

    // The timed cycles must have done the real work: every channel published
    // with its module's last value, no hourly save.
    const quint32 dernierTour = static_cast<quint32>(durees.size());
    int publiees = 0;
    for (int voie = 1; voie <= DoublureApplication::NB_VOIES; ++voie)
        publiees += qFuzzyCompare(doublure.mesure(voie),
                                  Reseau::lecture(voie - 1, dernierTour).valeurNombre);
    const bool sansSauvegarde = compterLignes(base, "mesures_taux") == tauxApresChauffe;
    delete acq;
    acq = nullptr;
    Horloge::liberer();

    const bool valide =
        !durees.isEmpty() && publiees == DoublureApplication::NB_VOIES && sansSauvegarde;
    const double milieu = mediane(durees);
    const double maximum = durees.isEmpty() ? 0 : *std::max_element(durees.begin(), durees.end());
    std::fprintf(stderr,
                 "  history %d..%d entries, %d/64 channels published, hourly save in timed "
                 "cycles: %s\n",
                 historiqueMin, historiqueMax, publiees, sansSauvegarde ? "no" : "YES");
    const QString invalide = valide ? QString() : QStringLiteral(" (setup check failed)");
    tableau.objectif(
        nom.arg("median").arg(durees.size()).arg(court), QString::number(milieu, 'f', 2) + invalide,
        objectif, QString::number(milieu / OBJECTIF_MS, 'f', 3), valide && milieu <= OBJECTIF_MS);
    tableau.objectif(
        nom.arg("max").arg(durees.size()).arg(court), QString::number(maximum, 'f', 2) + invalide,
        objectif, QString::number(maximum / OBJECTIF_MS, 'f', 3), valide && maximum <= OBJECTIF_MS);
    for (const auto &tache : detail)
        tableau.information(QStringLiteral("%1. of which %2 alone, ms (median of 5)%3")
                                .arg(profil.lettre, tache.first, court),
                            tache.second);
}
