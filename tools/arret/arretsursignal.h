#ifndef ARRETSURSIGNAL_H
#define ARRETSURSIGNAL_H

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal delivered by the event loop, so
// that a tool can leave exec() and let its destructors run (the segments it
// holds are removed only then). The handler only writes one byte to a pipe.
// A SIGINT that the launching shell ignores (a background job of a script)
// stays ignored, so that the script decides the order of the stops.
class ArretSurSignal : public QObject
{
    Q_OBJECT
public:
    explicit ArretSurSignal(QObject *parent = nullptr);
    ~ArretSurSignal() override;

    bool estActif() const { return notificateur != nullptr; }

signals:
    void arretDemande(int numeroSignal);

private:
    Q_DISABLE_COPY(ArretSurSignal)

    void lire();

    QSocketNotifier *notificateur = nullptr;
};

#endif // ARRETSURSIGNAL_H
