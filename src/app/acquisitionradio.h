#ifndef ACQUISITIONRADIO_H
#define ACQUISITIONRADIO_H

#include "log/logquintaris.h"
#include "radio/vuezone.h"
#include "udp/qserveurudp.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

class QConnexionRJ45;

// The service object: owns the radio UDP server and the registry of radio
// sensors, and runs the acquisition cycle that meets the main application
// (acquisitionradio_registre.cpp, acquisitionradio_cycle.cpp).
class AcquisitionRadio : public LogQuintaris
{
    Q_OBJECT
public:
    // One configured radio channel known to the service.
    class capteur
    {
    public:
        capteur(int voie, int type, const QString &adresse, int numero, QStringList *parametres);

        bool estIdentique(const capteur &autre) const;

        int voie;
        int type;
        QString adresse;
        int numero;
        QStringList parametres;
    };

    static const char *const CHEMIN_ADRESSE_BR;

    AcquisitionRadio();
    ~AcquisitionRadio() override;

    using LogQuintaris::ecrireLog;
    // The service's logging entry point: the log signal always, and the file
    // "/var/log/aradio_val0.txt" when `fichier` is true.
    void ecrireLog(const QString &texte, bool fichier);
    void setLog();

    // A copy of the last reading of each module.
    QList<DonneesUDP> LesDonneesUDP() const;
    // The module's reading in that list as it stands now: false when none.
    bool LaDonneeUDP(const QString &module, DonneesUDP *lecture) const;
    QString lireAdresseBR();

    // Sensor registry
    void chargerLesTypesVoies();
    bool typeEstRADIO(int type) const;
    bool typeEstRADIOContact(int type) const;
    QString indexTypeToString(int type) const;
    bool capteurDejaRecupere(const capteur &c) const;
    void effaceCapteurRecupere(int voie);
    void ajouterCapteurRecupere(const capteur &c);
    QConnexionRJ45 *creerConnexionRJ45(const capteur &c);
    // Builds the sensor of a configured radio channel and registers it,
    // creating its connection when it is new or changed.
    void enregistrerVoieRadio(int voie, int type, const QByteArray &texteAdresse, int numero);

    // For inspection.
    QServeurUdp &serveurUdp() { return serveur; }
    const QList<capteur> &lesCapteursRecuperes() const { return capteursRecuperes; }
    const QMap<int, QConnexionRJ45 *> &lesConnexions() const { return connexions; }
    const QStringList &lesTypesVoies() const { return typesVoies; }

public slots:
    void recuperer_mesures();
    void ecrireConsole(LogQuintaris::LigneLog ligne);

private:
    Q_DISABLE_COPY(AcquisitionRadio)

    void servirDemandeEnregistrement(const VueZone &demande);
    void publierAdresseBR(const VueZone &demande, const VueZone &tessalin);
    void reconcilierRegistre(const VueZone &voies);
    void publierMesures(const VueZone &voies);

    QServeurUdp serveur;
    QStringList typesVoies;
    QList<capteur> capteursRecuperes;
    QMap<int, QConnexionRJ45 *> connexions;
    QString adresseBR;
    quint32 dernierEnregistrementTaux = 0;
};

// The one service object, created by main.
extern AcquisitionRadio *acq;

#endif // ACQUISITIONRADIO_H
