#include "radio/zonepartagee.h"

#include <QFile>
#include <QHash>
#include <QPair>

#include <mutex>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace {
// The native key Qt derives from a name: a SHA-1 of it under the temporary
// directory. Made once per name and directory, not at each of the thousands
// of attachments a minute.
QString cleNative(const char *cle)
{
    static std::mutex mutex;
    static QHash<QByteArray, QPair<QByteArray, QString>> connues; // name -> TMPDIR, key
    const QByteArray tmpdir = qgetenv("TMPDIR");
    std::lock_guard<std::mutex> verrou(mutex);
    const auto connue = connues.constFind(cle);
    if (connue != connues.constEnd() && connue->first == tmpdir)
        return connue->second;
    const QString natif = QSharedMemory(QString::fromLatin1(cle)).nativeKey();
    connues.insert(cle, qMakePair(tmpdir, natif));
    return natif;
}
} // namespace

ZonePartagee::ZonePartagee(const char *cle)
    : nom(cle)
{
    // The same System V segment as the name gives, without the name's semaphore.
    setNativeKey(cleNative(cle));
}

bool ZonePartagee::attach(AccessMode mode)
{
    refus.clear();
    // A missing key file or segment is left to Qt, which says so in its words.
    const key_t clef = ::ftok(QFile::encodeName(nativeKey()).constData(), 'Q');
    const int id = clef == -1 ? -1 : ::shmget(clef, 0, 0);
    shmid_ds etat{};
    if (id >= 0 && ::shmctl(id, IPC_STAT, &etat) == 0 && etat.shm_atime == 0 &&
        etat.shm_nattch == 0) {
        refus =
            QStringLiteral("ZonePartagee::attach: %1 is not in use yet").arg(QLatin1String(nom));
        return false;
    }
    return QSharedMemory::attach(mode);
}

QString ZonePartagee::errorString() const
{
    return refus.isEmpty() ? QSharedMemory::errorString() : refus;
}
