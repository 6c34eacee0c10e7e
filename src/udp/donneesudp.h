#ifndef DONNEESUDP_H
#define DONNEESUDP_H

#include <QDateTime>
#include <QString>

// One decoded reading of a radio module, as the frame decoder makes it.
class DonneesUDP
{
public:
    DonneesUDP() = default;
    DonneesUDP(const QDateTime &dateheure, const QString &type, const QString &module,
               const QString &parent, double rank, const QString &valeur, double batterie, int alim)
        : dateheure(dateheure)
        , type(type)
        , module(module)
        , parent(parent)
        , rank(rank)
        , valeur(valeur)
        , batterie(batterie)
        , alim(alim)
    {}

    QDateTime dateheure; // when decoding of the frame began
    QString type;        // frame type letter
    QString module;      // module address
    QString parent;      // parent address
    double rank = 0.0;   // rank field x 0.1, not yet truncated
    QString valeur;      // value text, readings separated by ":"
    double batterie = 0.0;
    int alim = 0; // supply indicator
};

#endif // DONNEESUDP_H
