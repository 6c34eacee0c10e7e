#ifndef EPREUVES_H
#define EPREUVES_H

#include <QString>

class Tableau;

// How long each measure runs: the full run, or a quick check (--court) whose
// figures are marked as such.
struct Reglages
{
    bool court = false;
    double secondesRejeu = 10;    // bare replay
    double secondesPalier = 10;   // each step of the search for the daemon's rate
    int nbPaliersMax = 10;        // bound on the search's steps
    double secondesLiaison = 120; // 128 frames/s with cycles running
    int nbCycles = 60;            // timed acquisition cycles
    int tramesMemoire = 100000;   // frames over which the memory growth is taken
    double debitMemoire = 200;    // frames/s of the memory run
    // The daemon's clock speed-up in the memory run: 30 makes 200 frames/s
    // the design load (each module every 15 s) and its hour two minutes.
    double accelerationHorloge = 30;
    int periodeMemoire = 20;       // the daemon's cycle period in the memory run
    int tramesInondation = 200000; // frames from as many addresses
    int tramesHeure = 460800;      // an hour at 128 frames/s
    int nbCyclesHeure = 20;        // timed cycles behind that hour

    static Reglages pourCourt();
};

// Set by SIGINT/SIGTERM: every loop of the bench stops early and the children
// are stopped as after a normal run.
bool interrompu();

// a. Sustained rate of the daemon with no loss against the bare replay.
void mesurerDebit(const Reglages &r, Tableau &tableau);
// b. The serial link's ceiling with cycles running, and a burst.
void mesurerLiaisonSerie(const Reglages &r, Tableau &tableau);
// d. Resident memory after warm-up and its growth.
void mesurerMemoire(const Reglages &r, Tableau &tableau);
// c. One acquisition cycle at the design load, in this process.
void mesurerCycle(const Reglages &r, Tableau &tableau);
// A timed cycle behind an hour of frames, each module heard every `ecartSecondes`.
struct ProfilCycle
{
    QString lettre;
    double ecartSecondes;
    double objectifMs;
    int nbCycles;
};
void mesurerCycleAvecHistorique(const Reglages &r, Tableau &tableau, const ProfilCycle &profil);
// e. A flood of addresses each heard once: resident memory and CPU per frame.
void mesurerInondation(const Reglages &r, Tableau &tableau);
// f. An hour of frames at the serial link's ceiling: resident memory and cycle.
void mesurerHeureALaLiaison(const Reglages &r, Tableau &tableau);
// g. Instructions per frame of the daemon and of the bare replay (callgrind).
void mesurerInstructions(const Reglages &r, Tableau &tableau);
// The replay's frames alone under callgrind (the bench's hidden replay mode).
int rejouerPourCallgrind(const QString &fichier, int nombre);

#endif // EPREUVES_H
