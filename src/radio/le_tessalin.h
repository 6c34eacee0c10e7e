#ifndef LE_TESSALIN_H
#define LE_TESSALIN_H

#include "radio/champs.h"

#include <QByteArray>
#include <QtGlobal>

// The main application's device configuration, segment "Config_iTessalin".
namespace Le_Tessalin {

constexpr const char *CLE = "Config_iTessalin";
constexpr int TAILLE_MINIMUM = 1174;

constexpr int OFFSET_NB_VOIES = 96;     // i32, channel count published by the main application
constexpr int OFFSET_ADRESSE_BR = 1124; // NUL-padded text
constexpr int LARGEUR_ADRESSE_BR = 50;

inline qint32 nb_voies(const uchar *zone)
{
    return Champs::lireNombre<qint32>(zone + OFFSET_NB_VOIES);
}
inline void setNb_voies(uchar *zone, qint32 v)
{
    Champs::ecrireNombre(zone + OFFSET_NB_VOIES, v);
}

inline QByteArray adresse_br(const uchar *zone)
{
    return Champs::octetsTexte(zone + OFFSET_ADRESSE_BR, LARGEUR_ADRESSE_BR);
}
// Zero-fills the field, then copies at most `maximum` bytes (never more than the field).
inline void setAdresse_br(uchar *zone, const QByteArray &octets, int maximum)
{
    Champs::ecrireTexte(zone + OFFSET_ADRESSE_BR, LARGEUR_ADRESSE_BR, octets,
                        qMin(maximum, LARGEUR_ADRESSE_BR));
}

} // namespace Le_Tessalin

#endif // LE_TESSALIN_H
