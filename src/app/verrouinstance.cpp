#include "app/verrouinstance.h"

#include "commun/environnement.h"

#include <QFile>
#include <QList>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace VerrouInstance {

namespace {

QString erreurSysteme(const QString &action, const QString &chemin, int erreur)
{
    return QStringLiteral("acquisitionradio: cannot %1 the lock file %2: %3 (errno %4); running "
                          "without the one-instance lock")
        .arg(action, chemin, QString::fromLocal8Bit(std::strerror(erreur)))
        .arg(erreur);
}

QByteArray lireTout(int fd)
{
    QByteArray octets;
    char tampon[128];
    ssize_t lu = 0;
    while ((lu = ::pread(fd, tampon, sizeof tampon, octets.size())) > 0 && octets.size() < 4096)
        octets.append(tampon, static_cast<int>(lu));
    return octets;
}

} // namespace

QByteArray Contenu::octets() const
{
    return QByteArray::number(pid) + '\n' + QByteArray::number(depuis) + '\n';
}

Contenu Contenu::depuisOctets(const QByteArray &octets)
{
    const QList<QByteArray> lignes = octets.split('\n');
    Contenu c;
    bool ok = false;
    const qint64 pid = lignes.value(0).trimmed().toLongLong(&ok);
    if (!ok || pid <= 0)
        return c;
    c.pid = pid;
    const qint64 depuis = lignes.value(1).trimmed().toLongLong(&ok);
    c.depuis = ok && depuis > 0 ? depuis : 0;
    return c;
}

Prise prendre(qint64 maintenant)
{
    const QString chemin = Environnement::chemin(QString::fromLatin1(CHEMIN));
    const QByteArray nom = QFile::encodeName(chemin);
    const int fd = ::open(nom.constData(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
    if (fd < 0)
        return {Issue::SansVerrou, erreurSysteme(QStringLiteral("open"), chemin, errno)};
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int erreur = errno;
        if (erreur != EWOULDBLOCK) {
            ::close(fd);
            return {Issue::SansVerrou, erreurSysteme(QStringLiteral("lock"), chemin, erreur)};
        }
        // The holder writes its pid right after taking the lock: it may not be there yet.
        const Contenu detenteur = Contenu::depuisOctets(lireTout(fd));
        ::close(fd);
        const QString qui = detenteur.pid > 0 ? QStringLiteral("pid %1").arg(detenteur.pid)
                                              : QStringLiteral("pid not written yet");
        return {Issue::DejaPris,
                QStringLiteral("acquisitionradio: another instance already runs on this root "
                               "(%1, lock %2); not started")
                    .arg(qui, chemin)};
    }

    // Held from here on, even when the file cannot be written: the lock is
    // what keeps a second instance out, the contents only inform.
    Contenu nous;
    nous.pid = ::getpid();
    nous.depuis = maintenant;
    const QByteArray octets = nous.octets();
    const bool tronque = ::ftruncate(fd, 0) == 0;
    const ssize_t ecrit =
        tronque ? ::pwrite(fd, octets.constData(), static_cast<size_t>(octets.size()), 0) : -1;
    if (ecrit != octets.size()) {
        const int erreur = ecrit < 0 ? errno : ENOSPC; // a short write leaves errno as it was
        return {Issue::Pris, QStringLiteral("acquisitionradio: cannot write the pid into the "
                                            "lock file %1: %2 (errno %3)")
                                 .arg(chemin, QString::fromLocal8Bit(std::strerror(erreur)))
                                 .arg(erreur)};
    }
    return {Issue::Pris, QString()};
}

} // namespace VerrouInstance
