#ifndef RESEAU_H
#define RESEAU_H

#include <QByteArray>
#include <QString>

class BacASable;
class DoublureApplication;

// The bench's radio network: 100 modules, ten hanging under the border router
// and each of the others under one of those ten, every one sending type A
// frames (a value and the battery). The daemon, the replay and the cycle
// measure all use these frames.
namespace Reseau {

constexpr int NB_MODULES = 100;

// What the daemon makes of frame `numero` of module `module`.
struct Lecture
{
    QByteArray module;
    QByteArray parent;
    int rank = 0;      // already divided by ten and truncated
    QByteArray valeur; // as the decoder formats it
    double valeurNombre = 0.0;
};

Lecture lecture(int module, quint32 numero);
QByteArray trame(int module, quint32 numero);
QByteArray adresse(int module);
// Rank step that the module update computes for this module.
double pasDeRang(int module);

// The main application's side in a sandbox: the device database, 64 radio
// channels on the first 64 modules (every eighth with an offset of `offset`),
// and the border-router address file.
bool preparerAppareil(const BacASable &bac, DoublureApplication &doublure, double offset,
                      QString *erreur);

} // namespace Reseau

#endif // RESEAU_H
