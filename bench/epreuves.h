#ifndef EPREUVES_H
#define EPREUVES_H

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
    int periodeMemoire = 20; // the daemon's cycle period in the memory run

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

#endif // EPREUVES_H
