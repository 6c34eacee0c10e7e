#ifndef ZONETENUE_H
#define ZONETENUE_H

#include <QString>
#include <QtGlobal>

#include <memory>

// One shared segment held by the main application's double for as long as
// this object lives, in one of two ways:
//   - Qt: QSharedMemory::create, as a Qt main application does; it also
//     holds Qt's system semaphore of the key;
//   - SystemeV: shmget/shmat on Qt's key file, as a main application built
//     without QSharedMemory would; no semaphore is ever made or taken.
class ZoneTenue
{
public:
    enum class Maintien { Qt, SystemeV };

    virtual ~ZoneTenue() = default;

    // Creates the segment of `taille` bytes under `cle`, or takes over one
    // that a dead process left (made again when too small). Null on failure,
    // with the reason in `erreur`. SystemeV alone can leave it unattached
    // until attacher(): a main application caught between making and using it.
    static std::unique_ptr<ZoneTenue> creer(Maintien maintien, const QString &cle, int taille,
                                            bool attacher, QString *erreur);

    virtual bool attacher(QString *erreur) = 0;
    // Null while not attached.
    virtual uchar *octets() = 0;
    virtual int taille() const = 0;
    // What the mapping lets one touch: the size rounded up to whole pages.
    // The bytes past taille() are the segment's slack, shared all the same.
    int tailleMappee() const;

protected:
    ZoneTenue() = default;
    Q_DISABLE_COPY(ZoneTenue)
};

#endif // ZONETENUE_H
