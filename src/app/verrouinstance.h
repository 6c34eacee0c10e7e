#ifndef VERROUINSTANCE_H
#define VERROUINSTANCE_H

#include <QByteArray>
#include <QString>

// One daemon per root: an flock on "/run/acquisitionradio.lock" (under the
// sandbox root when one is set), held until the process ends. The file also
// says who holds it and since when, for the health check.
namespace VerrouInstance {

constexpr const char *CHEMIN = "/run/acquisitionradio.lock";

// What the holder writes into the file: its pid and its start time.
struct Contenu
{
    qint64 pid = 0;
    qint64 depuis = 0; // Unix seconds; 0 when unknown

    QByteArray octets() const;
    static Contenu depuisOctets(const QByteArray &octets);
};

enum class Issue {
    Pris,       // this process holds the lock
    DejaPris,   // another instance holds it: do not start
    SansVerrou, // the lock cannot be made: run without it
};

struct Prise
{
    Issue issue = Issue::SansVerrou;
    QString message; // one line for standard error; empty when the lock was taken
};

// Takes the lock for the rest of the process's life. The descriptor is
// close-on-exec, so the scripts the daemon runs never hold it.
Prise prendre(qint64 maintenant);

} // namespace VerrouInstance

#endif // VERROUINSTANCE_H
