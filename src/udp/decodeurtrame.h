#ifndef DECODEURTRAME_H
#define DECODEURTRAME_H

#include "udp/donneesudp.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

// Turns the text of one radio frame into a reading, without any I/O, so that
// the reception thread, the save thread and the fuzz target share one decoder.
//
// A frame is one upper-case type letter followed at once by fields separated
// by ':' (empty fields kept): module, parent, rank in tenths, then the fields
// of the type. A frame that is not accepted leaves nothing behind.
class DecodeurTrame
{
public:
    enum class Issue {
        Vide,        // empty text: nothing to decode
        TypeInconnu, // first character is not one of the frame letters
        TropCourte,  // fewer fields than the type requires
        Acceptee,
    };

    DecodeurTrame() = delete;

    // The frame text of a datagram: UTF-8, up to the first zero byte.
    static QString texteDatagramme(const QByteArray &octets);

    // Decodes `trame` received at `dateheure`; `donnees` is filled only when
    // the frame is accepted.
    static Issue decoder(const QString &trame, const QDateTime &dateheure, DonneesUDP *donnees);

    // The fewest fields a frame of type `type` may have, or -1 for a letter
    // that is not a frame type.
    static int seuil(QChar type);

    // The rank handed to the module update: truncated toward zero, saturated
    // at the int range and 0 for a NaN, as the appliance's ARM processor
    // converts (a crafted rank must not be undefined behaviour here).
    static int rangEntier(double rank);
};

#endif // DECODEURTRAME_H
