#include "radio/zonepartagee.h"

#include <QFile>

#include <sys/ipc.h>
#include <sys/shm.h>

ZonePartagee::ZonePartagee(const char *cle)
    : QSharedMemory(QString::fromLatin1(cle))
    , nom(QString::fromLatin1(cle))
{
    // The same System V segment as the name gives, without the name's semaphore.
    setNativeKey(nativeKey());
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
        refus = QStringLiteral("ZonePartagee::attach: %1 is not in use yet").arg(nom);
        return false;
    }
    return QSharedMemory::attach(mode);
}

QString ZonePartagee::errorString() const
{
    return refus.isEmpty() ? QSharedMemory::errorString() : refus;
}
