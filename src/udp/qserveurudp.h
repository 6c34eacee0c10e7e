#ifndef QSERVEURUDP_H
#define QSERVEURUDP_H

#include "udp/dernieres_lectures.h"
#include "udp/donneesudp.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>

#include <atomic>
#include <mutex>

class QThread;

// The radio UDP server: the IPv6 socket and its reception thread, frame
// decoding, the per-module update, and the server's own tasks on the radio
// data (radio database, frame statistics, purges, border-router supervision).
// Each duty is implemented in a file of its own (qserveurudp_<duty>.cpp).
class QServeurUdp : public QObject
{
    Q_OBJECT
public:
    static const QString ADRESSE_DEFAUT;
    static const quint16 PORT_DEFAUT = 5042;
    static const QString CHEMIN_FICHIER_DB;

    // One accepted frame in the one-hour history.
    class _info_trame
    {
    public:
        _info_trame() = default;
        _info_trame(const QDateTime &dateheure, const QString &module, double current_rank,
                    const QString &parent, int donnee_entiere)
            : dateheure(dateheure)
            , module(module)
            , current_rank(current_rank)
            , parent(parent)
            , donnee_entiere(donnee_entiere)
        {}

        QDateTime dateheure;
        QString module;
        double current_rank = 0.0;
        QString parent;
        int donnee_entiere = -1;
    };

    QServeurUdp();
    ~QServeurUdp() override;

    // Reception (qserveurudp_reception.cpp)
    void ouvrirSiNonOuvert();
    // Decoding (qserveurudp_decodage.cpp)
    void traiterDatagram(QByteArray datagramme);
    // Module update (qserveurudp_module.cpp)
    void setModule(QDateTime dateheure, QString module, QString parent, QString type, int rank,
                   double batterie, QString valeur, int alim);
    // Radio database (qserveurudp_base.cpp)
    void creerBD();
    void setModuleBD(QString module, int date_changement_pile, bool present);
    // Frame statistics (qserveurudp_statistiques.cpp)
    void calculerTauxInfosTrames();
    void enregistrerTaux();
    void supprimerAnciennesInfosTrames();
    // Appends one accepted frame to the history (the module update does it
    // for every frame; tests build histories with it).
    void ajouterInfoTrame(const _info_trame &info);
    // Retention purges (qserveurudp_purges.cpp)
    void supprimerAnciensModules();
    void supprimerAnciennesMesures();
    void supprimerAnciensTaux();
    // Border-router supervision (qserveurudp_supervision.cpp)
    void verifierSiBesoinRepairBr();
    void restartTunslip6();

    // Log writer (qserveurudp.cpp): written only with "-log" unless forced.
    void ecrireLog(const QString &texte);
    void ecrireLog(const QString &texte, bool forcer);
    void setLog();

    // Consistent copies of the lists the reception thread writes; the copies
    // stay valid whatever frames arrive afterwards.
    QList<DonneesUDP> copieDonneesUDP() const;
    // A copy of the module's last reading as it stands now; false when none.
    bool copieDonneeUDP(const QString &module, DonneesUDP *lecture) const;
    QList<_info_trame> copieInfosTrame() const;

    // The port the socket is bound to (0 while closed); the configured port
    // may be 0 in tests, letting the kernel choose.
    quint16 portLie() const;
    bool estOuvert() const { return sock.load() >= 0; }

    // Retention and recording settings, in seconds.
    bool enregistrerMesures = true;
    bool enregistrerMesuresHf = true;
    int dureeConservationModules = -1;
    int dureeConservationMesures = 1296000;
    int dureeConservationInfosTrames = 3600;
    int dureeConservationLongue = 7776000;

public slots:
    void processPendingDatagrams();

private:
    Q_DISABLE_COPY(QServeurUdp)

    // A line of the verbose log built only when that log is on: the module
    // update writes a score of them per frame, and the appliance runs without.
    template <typename Fabrique>
    void tracer(Fabrique &&fabriquer)
    {
        if (log.load())
            ecrireLog(fabriquer());
    }

    // The radio database connection of one task, by the per-task name rule.
    QSqlDatabase connexionTache(const QString &nom, const QString &prefixeLog);

    // Standard mutexes rather than QMutex: they lock through pthreads, which
    // the thread sanitizer sees, where Qt's futex-based ones stay invisible.
    mutable std::mutex mutexDonneesUDP;
    DernieresLectures lesDonneesUDP;

    quint32 dateDernierRestartTunslip6 = 0;
    quint32 dateDernierResetBr = 0;
    quint32 dateDernierRepairBr = 0;
    QStringList modulesResetBr;
    QStringList modulesRepairBr;
    QStringList typesVoies;

    quint16 port = PORT_DEFAUT;
    std::atomic<int> sock{-1};
    int inutilise = 0;

    std::mutex mutexDb; // the "hf" connection is shared by both threads
    QSqlDatabase db;

    QThread *threadReception = nullptr;
    QList<QThread *> threadsCrees; // kept so that the destructor can join them
    std::atomic<bool> arretReception{false};

    mutable std::mutex mutexInfosTrame;
    QList<_info_trame> LesInfosTrame; // accepted frames, oldest first

    std::atomic<bool> log{false};
};

#endif // QSERVEURUDP_H
