#ifndef HORLOGE_H
#define HORLOGE_H

#include <QDateTime>
#include <QtGlobal>

// The service's one clock. Every "now" and every sleep of the library goes
// through it, so that tests can move time instead of waiting for it.
// The daemon never freezes it: it then reads and sleeps on the real clock.
class Horloge
{
public:
    Horloge() = delete;

    // Local time, for the texts that show a date.
    static QDateTime maintenant();
    // The same instant in UTC, for dates that are only ever turned into Unix
    // seconds: each conversion of a local time runs the time-zone lookup,
    // which reads /etc/localtime's status when TZ is unset.
    static QDateTime maintenantUtc();
    // Unix seconds, unsigned 32-bit, as QDateTime::toTime_t gives them.
    static quint32 maintenantSecondes();
    static void dormir(unsigned long secondes);

    // Test controls. Once frozen, "now" only moves through avancer() and
    // dormir(), which then returns at once.
    static void figer(const QDateTime &instant);
    static void avancer(qint64 secondes);
    static void liberer();
    static bool estFigee();
};

#endif // HORLOGE_H
