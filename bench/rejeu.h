#ifndef REJEU_H
#define REJEU_H

#include <QString>

// The daemon's per-frame database work replayed on SQLite's C API alone: for
// each frame open the file, select the module, insert it (first frame) or
// update it, insert the reading, close. The statements are the daemon's own,
// texts and order; the schema is made by the daemon's start-up statements.
// What the daemon does beyond this (decoding, the module tree, "Zone_HF")
// is its overhead over this bare floor.
class Rejeu
{
public:
    struct Resultat
    {
        qint64 trames = 0;
        double secondes = 0.0;
        double cpuSecondes = 0.0; // this thread's user and system time meanwhile
        QString erreur;           // set when a statement failed in an unexpected way
        double parSeconde() const { return secondes > 0 ? trames / secondes : 0.0; }
        double cpuMsParTrame() const { return trames > 0 ? 1000 * cpuSecondes / trames : 0.0; }
    };

    // Replays frames of the bench's 100 modules, round robin, for `secondes`
    // into a new file `fichier`.
    static Resultat mesurer(const QString &fichier, double secondes);

    // The same in two steps, for an instruction count of the frames alone:
    // the schema and a first round that inserts the modules, then `nombre`
    // frames that update them. An empty text when all went as in the daemon.
    static QString preparer(const QString &fichier);
    static QString rejouer(const QString &fichier, int nombre);
};

#endif // REJEU_H
