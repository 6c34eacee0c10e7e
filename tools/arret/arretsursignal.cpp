#include "arretsursignal.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int tuyau[2] = {-1, -1};

extern "C" void surSignal(int numero)
{
    const int sauvegarde = errno;
    const unsigned char octet = static_cast<unsigned char>(numero);
    // Nothing useful can be done here if the pipe is full: a stop is already pending.
    if (::write(tuyau[1], &octet, 1) < 0) {
    }
    errno = sauvegarde;
}

bool installer(int numero, bool respecterIgnore)
{
    struct sigaction actuelle;
    std::memset(&actuelle, 0, sizeof actuelle);
    if (::sigaction(numero, nullptr, &actuelle) != 0)
        return false;
    if (respecterIgnore && actuelle.sa_handler == SIG_IGN)
        return true;
    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_handler = surSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(numero, &action, nullptr) == 0;
}
} // namespace

ArretSurSignal::ArretSurSignal(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, tuyau) != 0) {
        std::fprintf(stderr, "socketpair: %s\n", std::strerror(errno));
        return;
    }
    ::fcntl(tuyau[1], F_SETFL, ::fcntl(tuyau[1], F_GETFL) | O_NONBLOCK);
    notificateur = new QSocketNotifier(tuyau[0], QSocketNotifier::Read, this);
    connect(notificateur, &QSocketNotifier::activated, this, &ArretSurSignal::lire);
    if (!installer(SIGTERM, false) || !installer(SIGINT, true) || !installer(SIGHUP, true))
        std::fprintf(stderr, "sigaction: %s\n", std::strerror(errno));
}

ArretSurSignal::~ArretSurSignal()
{
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGHUP, SIG_DFL);
    struct sigaction actuelle;
    std::memset(&actuelle, 0, sizeof actuelle);
    if (::sigaction(SIGINT, nullptr, &actuelle) == 0 && actuelle.sa_handler == surSignal)
        ::signal(SIGINT, SIG_DFL);
    delete notificateur;
    for (int &fd : tuyau) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void ArretSurSignal::lire()
{
    unsigned char octet = 0;
    const ssize_t n = ::read(tuyau[0], &octet, 1);
    if (n == 1)
        emit arretDemande(octet);
}
