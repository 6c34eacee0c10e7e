#ifndef ZONEPARTAGEE_H
#define ZONEPARTAGEE_H

#include "radio/vuezone.h"

#include <QSharedMemory>
#include <QString>

// A segment of the main application as this service attaches it: by the
// native key that Qt derives from the segment's name, so that no attach or
// detach ever makes, takes or removes Qt's system semaphore of that name.
//
// Attached by name, QSharedMemory wraps each attach and detach in that
// semaphore, which Qt 5 makes on first use and removes when the object that
// made it goes. With the two threads of the service each making short-lived
// objects, and a main application that does not hold the semaphore itself,
// one object could remove it while another was between Qt's two semget
// calls: the second then made a new one left at 0, and every later attach on
// that name, the main application's too, waited on it for ever. By native key
// there is no semaphore at all. The service never locked the segments anyway.
//
// The semaphore also kept an attach from slipping in while a Qt main
// application was making a segment: between its shmget and its own shmat,
// our detach would find nobody attached and remove the segment. A segment
// that nobody has attached yet is therefore taken as not there yet.
class ZonePartagee : public QSharedMemory
{
public:
    explicit ZonePartagee(const char *cle);

    // QSharedMemory::attach, refusing a segment still being made.
    bool attach(AccessMode mode = ReadWrite);
    QString errorString() const;
    // The attached bytes with their real count; empty while not attached.
    VueZone vue() { return {static_cast<uchar *>(data()), isAttached() ? size() : 0}; }

private:
    Q_DISABLE_COPY(ZonePartagee)

    const char *const nom;
    QString refus;
};

#endif // ZONEPARTAGEE_H
