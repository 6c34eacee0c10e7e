#ifndef GESTION_RADIO_H
#define GESTION_RADIO_H

#include "radio/champs.h"

#include <QLatin1String>
#include <QString>
#include <QtGlobal>

#include <cstddef>

// One radio module's record in the shared segment "Zone_HF", byte for byte as
// the main application lays it out (little-endian, IEEE 754 doubles).
struct gestion_radio
{
    static constexpr int LARGEUR_NUMERO = 50;
    static constexpr int LARGEUR_PARENT = 50;
    static constexpr int LARGEUR_TYPE = 2;
    static constexpr int LARGEUR_VALEUR = 50;

    char present;                // 1 = live module; the main application clears it
    char numero[LARGEUR_NUMERO]; // module address, key of the table
    char parent[LARGEUR_PARENT]; // parent address in the radio tree
    char type[LARGEUR_TYPE];     // frame type letter and its NUL
    char valeur[LARGEUR_VALEUR]; // value text, always NUL-terminated by the writer
    char remplissage1[7];
    double pile;         // battery level of the last frame
    double rank;         // routing rank of the last frame
    double current_rank; // rank step computed by the module update
    qint32 nb_sauts;     // hops to the border router
    char remplissage2[4];
    double taux_reception;
    double taux_utilisation;
    quint32 dateheure_mesure;    // Unix seconds of the last frame
    qint32 date_changement_pile; // set by the main application

    QByteArray numeroOctets() const { return Champs::octetsTexte(numero, LARGEUR_NUMERO); }
    QByteArray parentOctets() const { return Champs::octetsTexte(parent, LARGEUR_PARENT); }
    QByteArray typeOctets() const { return Champs::octetsTexte(type, LARGEUR_TYPE); }
    QByteArray valeurOctets() const { return Champs::octetsTexte(valeur, LARGEUR_VALEUR); }

    // Addresses are compared as Latin-1 text, as the main application writes them.
    QString numeroTexte() const { return QString::fromLatin1(numeroOctets()); }
    QString parentTexte() const { return QString::fromLatin1(parentOctets()); }
    // The same comparison as numeroTexte() == adresse, without building the text.
    bool aPourNumero(const QString &adresse) const
    {
        return QLatin1String(numero, static_cast<int>(qstrnlen(numero, LARGEUR_NUMERO))) == adresse;
    }

    // A free slot: not present and no address. A removed module keeps its address.
    bool estLibre() const { return present == 0 && numero[0] == '\0'; }
};

static_assert(offsetof(gestion_radio, present) == 0, "present");
static_assert(offsetof(gestion_radio, numero) == 1, "numero");
static_assert(offsetof(gestion_radio, parent) == 51, "parent");
static_assert(offsetof(gestion_radio, type) == 101, "type");
static_assert(offsetof(gestion_radio, valeur) == 103, "valeur");
static_assert(offsetof(gestion_radio, pile) == 160, "pile");
static_assert(offsetof(gestion_radio, rank) == 168, "rank");
static_assert(offsetof(gestion_radio, current_rank) == 176, "current_rank");
static_assert(offsetof(gestion_radio, nb_sauts) == 184, "nb_sauts");
static_assert(offsetof(gestion_radio, taux_reception) == 192, "taux_reception");
static_assert(offsetof(gestion_radio, taux_utilisation) == 200, "taux_utilisation");
static_assert(offsetof(gestion_radio, dateheure_mesure) == 208, "dateheure_mesure");
static_assert(offsetof(gestion_radio, date_changement_pile) == 212, "date_changement_pile");
static_assert(sizeof(gestion_radio) == 216, "a module record is 216 bytes");
static_assert(sizeof(double) == 8, "doubles are IEEE 754 binary64");

// The two rates are written in place in the segment, not through a copied
// record, so that a module update running meanwhile keeps the rest.
inline void ecrireTauxEnPlace(uchar *slot, double taux_reception, double taux_utilisation)
{
    Champs::ecrireNombre(slot + offsetof(gestion_radio, taux_reception), taux_reception);
    Champs::ecrireNombre(slot + offsetof(gestion_radio, taux_utilisation), taux_utilisation);
}

// A record's address and state read in place in the segment, without copying
// the record: the table is searched at every frame.
inline QLatin1String numeroEnPlace(const uchar *slot)
{
    const char *numero = reinterpret_cast<const char *>(slot) + offsetof(gestion_radio, numero);
    return QLatin1String(numero, static_cast<int>(qstrnlen(numero, gestion_radio::LARGEUR_NUMERO)));
}
inline bool estLibreEnPlace(const uchar *slot)
{
    return slot[offsetof(gestion_radio, present)] == 0 &&
           slot[offsetof(gestion_radio, numero)] == '\0';
}

// The whole segment "Zone_HF": 100 module records, slot i at byte 216 x i.
struct les_modules_radio
{
    static constexpr int NB_MODULES = 100;
    gestion_radio modules[NB_MODULES];
};

static_assert(sizeof(les_modules_radio) == 21600, "Zone_HF holds 100 records of 216 bytes");

#endif // GESTION_RADIO_H
