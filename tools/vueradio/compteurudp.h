#ifndef COMPTEURUDP_H
#define COMPTEURUDP_H

#include "rapport.h"

#include <QList>
#include <QString>

// The kernel's view of the service's UDP socket, from /proc/net/udp6: how
// many datagrams it dropped because the socket's receive queue was full (the
// reception thread fell behind), and what waits in that queue now.
namespace CompteurUdp {

const QString FICHIER = QStringLiteral("/proc/net/udp6");

struct Socket
{
    QString adresse; // as inet_ntop writes it; empty when the table's field is malformed
    quint16 port = 0;
    quint64 fileReception = 0; // bytes waiting to be read
    quint64 pertes = 0;
    quint64 inode = 0;
};

// Every socket of the table bound to `port`.
QList<Socket> lire(const QByteArray &table, quint16 port);

Rapport rendre(quint16 port);

} // namespace CompteurUdp

#endif // COMPTEURUDP_H
