#ifndef LA_CONFIG_VOIES_H
#define LA_CONFIG_VOIES_H

#include "radio/champs.h"

#include <QByteArray>
#include <QtGlobal>

#include <cstring>

// One channel's configuration record in "Config_Voies_iTessalin"
// (La_config_n_voies): channel v, counted from 1, starts at byte v x 464.
struct La_config_voies
{
    static constexpr const char *CLE = "Config_Voies_iTessalin";
    static constexpr int TAILLE = 464;
    static constexpr int OFFSET_TYPE = 32;
    static constexpr int OFFSET_OFFSET = 96;
    static constexpr int OFFSET_NUMERO = 112;
    static constexpr int OFFSET_ADRESSE = 344;
    // The address text may run to the end of the record, never beyond.
    static constexpr int LARGEUR_ADRESSE = TAILLE - OFFSET_ADRESSE;

    uchar octets[TAILLE];

    static constexpr int debutVoie(int voie) { return voie * TAILLE; }
    // Size a segment needs to hold the records of channels 0 .. nbVoies.
    static constexpr int tailleZone(int nbVoies) { return (nbVoies + 1) * TAILLE; }

    static La_config_voies depuis(const uchar *zone, int voie)
    {
        La_config_voies r;
        std::memcpy(r.octets, zone + debutVoie(voie), TAILLE);
        return r;
    }

    qint32 type() const { return Champs::lireNombre<qint32>(octets + OFFSET_TYPE); }
    double offset() const { return Champs::lireNombre<double>(octets + OFFSET_OFFSET); }
    qint32 numero() const { return Champs::lireNombre<qint32>(octets + OFFSET_NUMERO); }
    QByteArray adresse() const
    {
        return Champs::octetsTexte(octets + OFFSET_ADRESSE, LARGEUR_ADRESSE);
    }

    void setType(qint32 v) { Champs::ecrireNombre(octets + OFFSET_TYPE, v); }
    void setOffset(double v) { Champs::ecrireNombre(octets + OFFSET_OFFSET, v); }
    void setNumero(qint32 v) { Champs::ecrireNombre(octets + OFFSET_NUMERO, v); }
    void setAdresse(const QByteArray &v)
    {
        Champs::ecrireTexte(octets + OFFSET_ADRESSE, LARGEUR_ADRESSE, v, LARGEUR_ADRESSE - 1);
    }
    void ecrireDans(uchar *zone, int voie) const
    {
        std::memcpy(zone + debutVoie(voie), octets, TAILLE);
    }
};

static_assert(sizeof(La_config_voies) == 464, "a channel record is 464 bytes");

#endif // LA_CONFIG_VOIES_H
