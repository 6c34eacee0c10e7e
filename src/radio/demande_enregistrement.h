#ifndef DEMANDE_ENREGISTREMENT_H
#define DEMANDE_ENREGISTREMENT_H

#include <QtGlobal>

// The main application's request block, segment "Demande_enreg".
namespace Demande_enregistrement {

constexpr const char *CLE = "Demande_enreg";
constexpr int TAILLE_MINIMUM = 82;

constexpr int OFFSET_CONFIG_MODIFIEE = 0;              // set when a new BR address was written
constexpr int OFFSET_ENREGISTRER_DONNEES_RADIO = 80;   // save request, cleared once served
constexpr int OFFSET_ACQUISITIONRADIO_FONCTIONNE = 81; // heartbeat

inline uchar config_modifiee(const uchar *zone)
{
    return zone[OFFSET_CONFIG_MODIFIEE];
}
inline void setConfig_modifiee(uchar *zone, uchar v)
{
    zone[OFFSET_CONFIG_MODIFIEE] = v;
}
inline uchar enregistrer_donnees_radio(const uchar *zone)
{
    return zone[OFFSET_ENREGISTRER_DONNEES_RADIO];
}
inline void setEnregistrer_donnees_radio(uchar *zone, uchar v)
{
    zone[OFFSET_ENREGISTRER_DONNEES_RADIO] = v;
}
inline uchar acquisitionRADIO_fonctionne(const uchar *zone)
{
    return zone[OFFSET_ACQUISITIONRADIO_FONCTIONNE];
}
inline void setAcquisitionRADIO_fonctionne(uchar *zone, uchar v)
{
    zone[OFFSET_ACQUISITIONRADIO_FONCTIONNE] = v;
}

} // namespace Demande_enregistrement

#endif // DEMANDE_ENREGISTREMENT_H
