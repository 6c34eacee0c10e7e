#include "udp/qserveurudp.h"

#include "commun/analysefils.h"
#include "commun/environnement.h"
#include "commun/horloge.h"

#include <QDebug>
#include <QThread>

#include <sys/socket.h>

// The appliance's address on the tunnel's network: 192.168.1.2 in the NAT64
// well-known prefix.
const QString QServeurUdp::ADRESSE_DEFAUT = QStringLiteral("64:ff9b::c0a8:102");
const QString QServeurUdp::CHEMIN_FICHIER_DB = QStringLiteral("/var/base/hf.db");

QServeurUdp::QServeurUdp()
    : QObject(nullptr)
    , dateDernierRestartTunslip6(Horloge::maintenantSecondes())
    , port(Environnement::portLiaison(PORT_DEFAUT))
{
    restartTunslip6();
    // Replaced at once by ouvrirSiNonOuvert and never started: the first
    // thread object is kept alive, as the appliance's service always did.
    threadReception = new QThread;
    threadsCrees.append(threadReception);
    ouvrirSiNonOuvert();
    creerBD();
}

// The daemon never destroys its server; tests and tools do, so the reception
// threads are woken, ended and joined here before the members go.
QServeurUdp::~QServeurUdp()
{
    arretReception.store(true);
    const int descripteur = sock.load();
    if (descripteur >= 0)
        ::shutdown(descripteur, SHUT_RDWR);
    for (QThread *thread : qAsConst(threadsCrees)) {
        thread->quit();
        thread->wait();
        AnalyseFils::apresJoin(this);
        delete thread;
    }
}

void QServeurUdp::ecrireLog(const QString &texte)
{
    ecrireLog(texte, false);
}

void QServeurUdp::ecrireLog(const QString &texte, bool forcer)
{
    if (!forcer && !log.load())
        return;
    qDebug().noquote() << QStringLiteral("%1 (serveur_udp) %2")
                              .arg(Horloge::maintenant().toString(
                                       QStringLiteral("dd/MM/yyyy hh:mm:ss")),
                                   texte);
}

void QServeurUdp::setLog()
{
    log.store(true);
}

namespace {
// A copy with a list block of its own, made under the caller's lock. A shared
// block would be released by the reader outside the lock, and Qt checks the
// sharing without a memory barrier before the reception thread grows the list
// in place.
template <typename T>
QList<T> copieDetachee(const QList<T> &liste)
{
    QList<T> copie = liste;
    copie.detach();
    return copie;
}
} // namespace

QList<DonneesUDP> QServeurUdp::copieDonneesUDP() const
{
    std::lock_guard<std::mutex> verrou(mutexDonneesUDP);
    return lesDonneesUDP.copie();
}

bool QServeurUdp::copieDonneeUDP(const QString &module, DonneesUDP *lecture) const
{
    std::lock_guard<std::mutex> verrou(mutexDonneesUDP);
    return lesDonneesUDP.lecture(module, lecture);
}

QList<QServeurUdp::_info_trame> QServeurUdp::copieInfosTrame() const
{
    std::lock_guard<std::mutex> verrou(mutexInfosTrame);
    return copieDetachee(LesInfosTrame);
}

void QServeurUdp::ajouterInfoTrame(const _info_trame &info)
{
    // An hour of history holds the same hundred addresses thousands of times:
    // a new entry shares the texts of its module's previous entry, found
    // among the last frames, instead of keeping copies of its own.
    const int PROFONDEUR_RECHERCHE = 200;
    _info_trame entree = info;
    std::lock_guard<std::mutex> verrou(mutexInfosTrame);
    const int fin = qMax(0, LesInfosTrame.size() - PROFONDEUR_RECHERCHE);
    for (int i = LesInfosTrame.size() - 1; i >= fin; --i) {
        const _info_trame &precedente = LesInfosTrame.at(i);
        if (precedente.module != entree.module)
            continue;
        entree.module = precedente.module;
        if (precedente.parent == entree.parent)
            entree.parent = precedente.parent;
        break;
    }
    LesInfosTrame.append(entree);
}
