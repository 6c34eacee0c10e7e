#include "udp/threadsavemodule.h"

#include "commun/horloge.h"
#include "udp/decodeurtrame.h"
#include "udp/qserveurudp.h"

#include <QDebug>

ThreadSaveModule::ThreadSaveModule(QServeurUdp *serveur)
    : QThread(nullptr)
    , serveur(serveur)
{}

void ThreadSaveModule::appliquer(const DonneesUDP &donnees)
{
    serveur->setModule(donnees.dateheure, donnees.module, donnees.parent, donnees.type,
                       DecodeurTrame::rangEntier(donnees.rank), donnees.batterie, donnees.valeur,
                       donnees.alim);
}

void ThreadSaveModule::ajouterModule(DonneesUDP *donnees)
{
    if (donnees)
        appliquer(*donnees);
}

void ThreadSaveModule::mettreEnFile(DonneesUDP *donnees)
{
    std::lock_guard<std::mutex> verrou(mutexFile);
    lesDonnees.append(donnees);
}

int ThreadSaveModule::tailleFile() const
{
    std::lock_guard<std::mutex> verrou(mutexFile);
    return lesDonnees.size();
}

int ThreadSaveModule::traiterFile()
{
    QList<DonneesUDP *> instantane;
    {
        std::lock_guard<std::mutex> verrou(mutexFile);
        instantane = lesDonnees;
    }
    // The queue is not held while the readings are applied: a frame may take
    // a while (database, shared memory) and the producer must not wait on it.
    QList<DonneesUDP *> traitees;
    for (DonneesUDP *donnees : qAsConst(instantane)) {
        if (donnees)
            appliquer(*donnees);
        traitees.append(donnees);
    }
    std::lock_guard<std::mutex> verrou(mutexFile);
    for (DonneesUDP *donnees : qAsConst(traitees)) {
        const int j = lesDonnees.indexOf(donnees);
        if (j < 0)
            continue;
        lesDonnees.removeAt(j);
        qDebug() << "Suppression j=" << j;
    }
    return traitees.size();
}

void ThreadSaveModule::run()
{
    for (;;) {
        do {
            Horloge::dormir(1);
        } while (tailleFile() == 0);
        traiterFile();
    }
}
