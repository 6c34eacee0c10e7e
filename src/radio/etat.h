#ifndef ETAT_H
#define ETAT_H

#include "radio/champs.h"

#include <QtGlobal>

// The main application's measurement state, segment "Etat_iTessalin":
// Mesure[v], the value of channel v, is a double at byte 8 + 8 x v.
namespace Etat {

constexpr const char *CLE = "Etat_iTessalin";
constexpr int OFFSET_MESURES = 8;

constexpr int offsetMesure(int voie)
{
    return OFFSET_MESURES + 8 * voie;
}
constexpr int tailleZone(int nbVoies)
{
    return offsetMesure(nbVoies + 1);
}

inline double mesure(const uchar *zone, int voie)
{
    return Champs::lireNombre<double>(zone + offsetMesure(voie));
}
inline void setMesure(uchar *zone, int voie, double v)
{
    Champs::ecrireNombre(zone + offsetMesure(voie), v);
}

} // namespace Etat

#endif // ETAT_H
