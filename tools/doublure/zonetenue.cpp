#include "zonetenue.h"

#include "cleqt.h"

#include <QDir>
#include <QFile>
#include <QSharedMemory>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

QString texteErreur(const QString &quoi, int erreur)
{
    return QStringLiteral("%1: %2").arg(quoi, QString::fromLocal8Bit(std::strerror(erreur)));
}

class ZoneTenueQt : public ZoneTenue
{
public:
    explicit ZoneTenueQt(const QString &cle)
        : zone(cle)
    {}

    bool creer(int taille, QString *erreur)
    {
        if (!zone.create(taille)) {
            // Left by a process that died: take it over.
            if (zone.error() != QSharedMemory::AlreadyExists || !zone.attach()) {
                *erreur = QStringLiteral("%1: %2").arg(zone.key(), zone.errorString());
                return false;
            }
            // Too small to be ours: detaching removes it when nobody else
            // holds it, and ours can then be made.
            if (zone.size() < taille) {
                const int trouvee = zone.size();
                zone.detach();
                if (!zone.create(taille)) {
                    *erreur = QStringLiteral("%1: a segment of %2 bytes is in the way: %3")
                                  .arg(zone.key())
                                  .arg(trouvee)
                                  .arg(zone.errorString());
                    return false;
                }
            }
        }
        return true;
    }
    bool attacher(QString *) override { return zone.isAttached(); }
    uchar *octets() override { return static_cast<uchar *>(zone.data()); }
    int taille() const override { return zone.size(); }

private:
    QSharedMemory zone;
};

class ZoneTenueSystemeV : public ZoneTenue
{
public:
    explicit ZoneTenueSystemeV(const QString &cle)
        : cle(cle)
        , fichier(CleQt::fichier(cle))
    {}
    // Gone with its holder, as a main application that stops removes its
    // segments: marked for removal, the key file deleted.
    ~ZoneTenueSystemeV() override
    {
        if (adresse)
            ::shmdt(adresse);
        if (id >= 0)
            ::shmctl(id, IPC_RMID, nullptr);
        if (id >= 0)
            QFile::remove(fichier);
    }

    bool creer(int tailleVoulue, QString *erreur)
    {
        const QByteArray chemin = QFile::encodeName(fichier);
        const int d = ::open(chemin.constData(), O_CREAT | O_RDWR | O_CLOEXEC, 0640);
        if (d < 0) {
            *erreur = texteErreur(fichier, errno);
            return false;
        }
        ::close(d);
        const key_t clef = CleQt::cleSystemeV(cle);
        if (clef == -1) {
            *erreur = texteErreur(QStringLiteral("ftok %1").arg(fichier), errno);
            return false;
        }
        id = ::shmget(clef, static_cast<size_t>(tailleVoulue), 0600 | IPC_CREAT | IPC_EXCL);
        if (id < 0 && errno == EEXIST) {
            // Left by a process that died: taken over, or made again when too small.
            id = ::shmget(clef, 0, 0600);
            shmid_ds etat{};
            if (id >= 0 && ::shmctl(id, IPC_STAT, &etat) == 0 &&
                etat.shm_segsz < static_cast<size_t>(tailleVoulue)) {
                ::shmctl(id, IPC_RMID, nullptr);
                id = ::shmget(clef, static_cast<size_t>(tailleVoulue), 0600 | IPC_CREAT | IPC_EXCL);
            }
        }
        if (id < 0) {
            *erreur = texteErreur(QStringLiteral("shmget %1").arg(cle), errno);
            return false;
        }
        shmid_ds etat{};
        if (::shmctl(id, IPC_STAT, &etat) != 0) {
            *erreur = texteErreur(QStringLiteral("shmctl %1").arg(cle), errno);
            return false;
        }
        octetsSegment = static_cast<int>(etat.shm_segsz);
        return true;
    }
    bool attacher(QString *erreur) override
    {
        if (adresse)
            return true;
        void *a = ::shmat(id, nullptr, 0);
        if (a == reinterpret_cast<void *>(-1)) {
            *erreur = texteErreur(QStringLiteral("shmat %1").arg(cle), errno);
            return false;
        }
        adresse = static_cast<uchar *>(a);
        return true;
    }
    uchar *octets() override { return adresse; }
    int taille() const override { return octetsSegment; }

private:
    const QString cle;
    const QString fichier;
    int id = -1;
    int octetsSegment = 0;
    uchar *adresse = nullptr;
};

} // namespace

std::unique_ptr<ZoneTenue> ZoneTenue::creer(Maintien maintien, const QString &cle, int taille,
                                            bool attacher, QString *erreur)
{
    QString raison;
    if (maintien == Maintien::Qt) {
        auto zone = std::make_unique<ZoneTenueQt>(cle);
        if (zone->creer(taille, &raison))
            return zone;
    } else {
        auto zone = std::make_unique<ZoneTenueSystemeV>(cle);
        if (zone->creer(taille, &raison) && (!attacher || zone->attacher(&raison)))
            return zone;
    }
    if (erreur)
        *erreur = raison;
    return nullptr;
}

int ZoneTenue::tailleMappee() const
{
    const int page = static_cast<int>(::sysconf(_SC_PAGESIZE));
    return (taille() + page - 1) / page * page;
}
