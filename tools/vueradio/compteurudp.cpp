#include "compteurudp.h"

#include "miseenforme.h"

#include <QFile>

#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace {

// The kernel prints each 32-bit word of the address in the processor's own
// byte order: copying the words back in that order gives the address bytes.
QString adresse(const QByteArray &hex)
{
    if (hex.size() != 32)
        return QString();
    in6_addr octets{};
    for (int mot = 0; mot < 4; ++mot) {
        bool ok = false;
        const quint32 valeur = hex.mid(mot * 8, 8).toUInt(&ok, 16);
        if (!ok)
            return QString();
        std::memcpy(octets.s6_addr + mot * 4, &valeur, 4);
    }
    char texte[INET6_ADDRSTRLEN];
    if (!inet_ntop(AF_INET6, &octets, texte, sizeof texte))
        return QString();
    return QString::fromLatin1(texte);
}

} // namespace

namespace CompteurUdp {

QList<Socket> lire(const QByteArray &table, quint16 port)
{
    // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt
    // uid timeout inode ref pointer drops
    enum { LOCAL = 1, FILES = 4, INODE = 9, PERTES = 12, NB_CHAMPS = 13 };
    QList<Socket> sockets;
    const QList<QByteArray> lignes = table.split('\n');
    for (int i = 1; i < lignes.size(); ++i) {
        const QList<QByteArray> champs = lignes.at(i).simplified().split(' ');
        if (champs.size() < NB_CHAMPS)
            continue;
        const QList<QByteArray> local = champs.at(LOCAL).split(':');
        const QList<QByteArray> files = champs.at(FILES).split(':');
        bool ok = false;
        if (local.size() != 2 || files.size() != 2 || local.at(1).toUShort(&ok, 16) != port || !ok)
            continue;
        Socket s;
        s.adresse = adresse(local.at(0));
        s.port = port;
        s.fileReception = files.at(1).toULongLong(nullptr, 16);
        s.inode = champs.at(INODE).toULongLong();
        s.pertes = champs.at(PERTES).toULongLong();
        sockets.append(s);
    }
    return sockets;
}

Rapport rendre(quint16 port)
{
    Rapport r;
    r.texte = QStringLiteral("UDP socket of the service (port %1, %2)\n").arg(port).arg(FICHIER);
    QFile fichier(FICHIER);
    if (!fichier.open(QIODevice::ReadOnly)) {
        r.absent(QStringLiteral("%1 cannot be read: %2").arg(FICHIER, fichier.errorString()));
        return r;
    }
    // /proc files report no size: read to the end.
    const QList<Socket> sockets = lire(fichier.readAll(), port);
    if (sockets.isEmpty()) {
        r.absent(QStringLiteral("no UDP socket bound to port %1 in %2 (is the service "
                                "running? ACQUISITIONRADIO_PORT sets another port)")
                     .arg(port)
                     .arg(FICHIER));
        return r;
    }
    MiseEnForme::Tableau t({QStringLiteral("local address"), QStringLiteral("drops"),
                            QStringLiteral("queued bytes"), QStringLiteral("inode")},
                           QStringLiteral("gddd"));
    for (const Socket &s : sockets) {
        t.ajouter({QStringLiteral("[%1]:%2").arg(s.adresse).arg(s.port), QString::number(s.pertes),
                   QString::number(s.fileReception), QString::number(s.inode)});
    }
    r.texte += t.texte();
    return r;
}

} // namespace CompteurUdp
