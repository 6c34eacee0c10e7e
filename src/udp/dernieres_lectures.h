#ifndef DERNIERES_LECTURES_H
#define DERNIERES_LECTURES_H

#include "udp/donneesudp.h"

#include <QHash>
#include <QList>
#include <QString>

#include <list>

// The last reading of each module, in the order of their last frames, indexed
// by module address: a frame replaces its module's reading without a walk of
// the whole list, and a channel finds its module's reading at once. Readings
// that no channel can take any more (older than AGE_UTILE seconds) are
// dropped, so that a flood of addresses heard once does not grow the list
// for ever. Not locked: the server holds its own mutex around it.
class DernieresLectures
{
public:
    // A channel takes a reading at most this many seconds old.
    static constexpr qint64 AGE_UTILE = 60;

    // `maintenant` in Unix seconds, for the readings to drop.
    void remplacer(const DonneesUDP &lecture, qint64 maintenant);
    // A copy of the module's reading; false when there is none.
    bool lecture(const QString &module, DonneesUDP *copie) const;
    QList<DonneesUDP> copie() const;
    int taille() const { return parModule.size(); }

private:
    using Position = std::list<DonneesUDP>::iterator;

    std::list<DonneesUDP> parOrdre; // oldest frame first
    QHash<QString, Position> parModule;
};

#endif // DERNIERES_LECTURES_H
