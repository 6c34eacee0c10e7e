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

    static QDateTime maintenant();
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
