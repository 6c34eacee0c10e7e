#ifndef THREADSAVEMODULE_H
#define THREADSAVEMODULE_H

#include "udp/donneesudp.h"

#include <QList>
#include <QThread>

#include <mutex>

class QServeurUdp;

// Applies decoded readings to the module state away from the reception
// thread: a queue drained once a second. The service applies every reading
// synchronously and does not start one; the class is ready to be wired in.
// Neither the server nor the queued records are owned.
class ThreadSaveModule : public QThread
{
    Q_OBJECT
public:
    explicit ThreadSaveModule(QServeurUdp *serveur);

    // Applies the reading at once, in the caller's thread; the queue is left
    // alone.
    void ajouterModule(DonneesUDP *donnees);

    // The producer's side of the queue. The record must outlive its pass.
    void mettreEnFile(DonneesUDP *donnees);
    int tailleFile() const;

    // One pass over the queue as it stands: each record applied in order,
    // then removed by identity, so that records queued meanwhile wait for the
    // next pass. Returns how many were applied.
    int traiterFile();

protected:
    // Never returns: sleeps a second at a time while the queue is empty.
    void run() override;

private:
    Q_DISABLE_COPY(ThreadSaveModule)

    void appliquer(const DonneesUDP &donnees);

    QServeurUdp *serveur = nullptr;
    // A producer and this thread both touch the queue.
    mutable std::mutex mutexFile;
    QList<DonneesUDP *> lesDonnees;
};

#endif // THREADSAVEMODULE_H
