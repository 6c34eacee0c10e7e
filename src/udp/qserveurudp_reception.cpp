#include "udp/qserveurudp.h"

#include "commun/analysefils.h"
#include "commun/environnement.h"

#include <QThread>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const int TAILLE_TAMPON = 1024;
const int PROTOCOLE_UDP = 17;

QString texteErreur(const QString &modele, int erreur)
{
    return modele.arg(QString::number(erreur), QString::fromLocal8Bit(std::strerror(erreur)));
}

} // namespace

void QServeurUdp::ouvrirSiNonOuvert()
{
    ecrireLog(QStringLiteral("début ouvrirSiNonOuvert"));
    if (sock.load() >= 0) {
        ecrireLog(QStringLiteral("fin ouvrirSiNonOuvert"));
        return;
    }

    const QString adresse = Environnement::adresseLiaison(ADRESSE_DEFAUT);
    // The message names the constant port whatever the sandbox binds.
    ecrireLog(QStringLiteral("Tentative de création du serveur UDP (socket) sur %1:%2")
                  .arg(adresse, QString::number(PORT_DEFAUT)));

    // Close-on-exec: the tunnel and border-router scripts run through the
    // shell, and what they leave running must not hold the radio socket.
    const int descripteur = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, PROTOCOLE_UDP);
    if (descripteur == -1) {
        const int erreur = errno;
        ecrireLog(texteErreur(QStringLiteral("socket() error : %1 : %2"), erreur), true);
        sock.store(-1);
        return;
    }

    sockaddr_in6 local;
    std::memset(&local, 0, sizeof local);
    local.sin6_family = AF_INET6;
    local.sin6_port = htons(port);
    local.sin6_flowinfo = 0;
    local.sin6_scope_id = 0;
    int erreur = 0;
    if (::inet_pton(AF_INET6, adresse.toLatin1().constData(), &local.sin6_addr) != 1) {
        // Only a mistyped sandbox address gets here: refuse it rather than
        // listen on every address of the appliance.
        erreur = EINVAL;
        ::close(descripteur);
    } else if (::bind(descripteur, reinterpret_cast<const sockaddr *>(&local),
                      sizeof(sockaddr_in6)) == -1) {
        erreur = errno;
        // Closed, not abandoned: with the port held for hours, one descriptor
        // lost per cycle would use up the process's descriptors.
        ::close(descripteur);
    }
    if (erreur != 0) {
        ecrireLog(texteErreur(QStringLiteral("bind() error : %1 : %2"), erreur), true);
        ecrireLog(
            texteErreur(QStringLiteral("État du serveur UDP : Non ouvert : %1 : %2"), erreur));
        sock.store(-1);
        return;
    }

    sock.store(descripteur);
    ecrireLog(QStringLiteral("État du serveur UDP : En attente de réception de données (%1)")
                  .arg(descripteur));

    // The receive loop runs straight from started(), in the new thread, while
    // the server itself stays in the thread that made it: the acquisition
    // cycle keeps calling it from there (statistics, purges, the next
    // reopening), and an object moved to a thread that has finished could no
    // longer be moved back nor have its queued calls delivered.
    threadReception = new QThread;
    threadsCrees.append(threadReception);
    connect(threadReception, &QThread::started, this, &QServeurUdp::processPendingDatagrams,
            Qt::DirectConnection);
    threadReception->start(QThread::InheritPriority);

    ecrireLog(QStringLiteral("fin ouvrirSiNonOuvert"));
}

void QServeurUdp::processPendingDatagrams()
{
    char tampon[TAILLE_TAMPON];
    const int descripteur = sock.load();
    for (;;) {
        std::memset(tampon, 0, sizeof tampon);
        sockaddr_in6 emetteur;
        socklen_t longueur = sizeof(sockaddr_in6);
        const ssize_t n = ::recvfrom(descripteur, tampon, sizeof tampon, 0,
                                     reinterpret_cast<sockaddr *>(&emetteur), &longueur);
        // Destruction shuts the socket down, which makes recvfrom return 0:
        // that is no datagram.
        if (arretReception.load())
            break;
        if (n >= 0) {
            // A datagram filling the buffer has no terminator: never read past it.
            traiterDatagram(QByteArray(tampon, static_cast<int>(qstrnlen(tampon, sizeof tampon))));
            continue;
        }

        const int erreur = errno;
        ecrireLog(texteErreur(QStringLiteral("recvfrom failed : %1 : %2"), erreur), true);
        if (::close(descripteur) == -1) {
            const int erreurClose = errno;
            ecrireLog(
                texteErreur(QStringLiteral("sur recvfrom, close failed : %1 : %2"), erreurClose),
                true);
        }
        // Kept in this order as the appliance does it, although the option
        // cannot reach a socket that is already closed.
        const int un = 1;
        if (::setsockopt(descripteur, SOL_SOCKET, SO_REUSEADDR, &un, sizeof un) == -1) {
            const int erreurOption = errno;
            ecrireLog(texteErreur(QStringLiteral("sur recvfrom, setsockopt failed : %1 : %2"),
                                  erreurOption),
                      true);
        }
        sock.store(-1);
        break;
    }
    // The thread has nothing else to do: let it finish instead of idling in
    // its event loop. Never the main thread, should someone call the slot there.
    if (QThread::currentThread() != thread())
        QThread::currentThread()->quit();
    AnalyseFils::finFil(this);
}

quint16 QServeurUdp::portLie() const
{
    const int descripteur = sock.load();
    if (descripteur < 0)
        return 0;
    sockaddr_in6 local;
    socklen_t longueur = sizeof local;
    std::memset(&local, 0, sizeof local);
    if (::getsockname(descripteur, reinterpret_cast<sockaddr *>(&local), &longueur) == -1)
        return 0;
    return ntohs(local.sin6_port);
}
