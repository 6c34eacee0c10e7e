#ifndef DOUBLUREAPPLICATION_H
#define DOUBLUREAPPLICATION_H

#include "radio/gestion_radio.h"

#include <QByteArray>
#include <QMap>
#include <QSharedMemory>
#include <QString>
#include <QStringList>

#include <memory>

// Plays the appliance's main application for tests and simulators: creates
// the five shared segments the service attaches to and holds them for as long
// as the object lives (Qt removes a segment when its last user detaches),
// writes channel configurations and reads the values the service publishes.
class DoublureApplication
{
public:
    static constexpr int NB_VOIES = 64;

    DoublureApplication();
    ~DoublureApplication();
    DoublureApplication(const DoublureApplication &) = delete;
    DoublureApplication &operator=(const DoublureApplication &) = delete;

    // Creates (or, after a crash left one behind, takes over and clears) all
    // five segments. Returns false with the reason in `erreur`.
    bool creerZones(QString *erreur = nullptr);
    // One segment by key ("Zone_HF", "Demande_enreg", ...): create or remove it
    // alone, to play a main application that starts late or restarts.
    bool creerZone(const QString &cle, QString *erreur = nullptr);
    void detruireZone(const QString &cle);
    bool zonePresente(const QString &cle) const;

    // Channel configuration, "Config_Voies_iTessalin" (channel v from 1).
    void ecrireVoie(int voie, int type, const QByteArray &adresse, int numero, double offset);
    void effacerVoie(int voie);
    // "Config_iTessalin"
    void setNbVoiesPubliees(int nb);
    QByteArray adresseBR() const;
    void setAdresseBR(const QByteArray &adresse);
    // "Etat_iTessalin"
    double mesure(int voie) const;
    void setMesure(int voie, double valeur);
    // "Demande_enreg"
    uchar octetDemande(int offset) const;
    void setOctetDemande(int offset, uchar valeur);
    // "Zone_HF"
    QByteArray octetsZoneHF() const;
    void ecrireModule(int slot, const gestion_radio &module);

    // Raw access for the checks that read fields at their byte offsets.
    uchar *donnees(const QString &cle);
    const uchar *donnees(const QString &cle) const;
    static int tailleZone(const QString &cle);
    static QStringList cles();

    // The device database with its table config_type_voie (numero, nom):
    // name i gets number i. Returns false with the reason in `erreur`.
    static bool creerBaseAppareil(const QString &chemin, const QStringList &typesVoies,
                                  QString *erreur = nullptr);

private:
    QMap<QString, std::shared_ptr<QSharedMemory>> zones;
};

#endif // DOUBLUREAPPLICATION_H
