#ifndef DOUBLUREAPPLICATION_H
#define DOUBLUREAPPLICATION_H

#include "zonetenue.h"

#include "radio/gestion_radio.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

#include <memory>

// Plays the appliance's main application for tests and simulators: creates
// the five shared segments the service attaches to and holds them for as long
// as the object lives, writes channel configurations and reads the values the
// service publishes. Its fields are written at their byte offsets as numbers
// of its own, not through the service's layout headers, so that an offset
// wrong in the service cannot be wrong here in the same way. The segments are
// held through Qt or through plain System V calls (see ZoneTenue).
class DoublureApplication
{
public:
    using Maintien = ZoneTenue::Maintien;
    static constexpr int NB_VOIES = 64;

    explicit DoublureApplication(Maintien maintien = Maintien::Qt);
    ~DoublureApplication();
    DoublureApplication(const DoublureApplication &) = delete;
    DoublureApplication &operator=(const DoublureApplication &) = delete;

    Maintien maintien() const { return mode; }

    // Creates (or, after a crash left one behind, takes over and clears) all
    // five segments. Returns false with the reason in `erreur`.
    bool creerZones(QString *erreur = nullptr);
    // One segment by key ("Zone_HF", "Demande_enreg", ...): create or remove it
    // alone, to play a main application that starts late or restarts. A size
    // of 0 is the documented one; another plays a main application whose
    // record is shorter. Unattached (System V only) it is made but not yet
    // used, until attacherZone().
    bool creerZone(const QString &cle, QString *erreur = nullptr, int taille = 0,
                   bool attachee = true);
    bool attacherZone(const QString &cle, QString *erreur = nullptr);
    void detruireZone(const QString &cle);
    bool zonePresente(const QString &cle) const;
    // Whether any process holds a segment under this key, asked without Qt's
    // semaphore (a probe through QSharedMemory would make and remove it).
    static bool zoneExiste(const QString &cle);

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

    // Raw access for the checks that read fields at their byte offsets. The
    // mapping reaches tailleMappee() bytes: the slack past the segment's end.
    uchar *donnees(const QString &cle);
    const uchar *donnees(const QString &cle) const;
    int tailleReelle(const QString &cle) const;
    int tailleMappee(const QString &cle) const;
    static int tailleZone(const QString &cle);
    static QStringList cles();

    // The device database with its table config_type_voie (numero, nom):
    // name i gets number i. Returns false with the reason in `erreur`.
    static bool creerBaseAppareil(const QString &chemin, const QStringList &typesVoies,
                                  QString *erreur = nullptr);

private:
    // The field at `offset` of the segment, when `largeur` bytes of it lie
    // within the segment; null otherwise.
    uchar *champ(const QString &cle, int offset, int largeur);
    const uchar *champ(const QString &cle, int offset, int largeur) const;

    Maintien mode;
    QMap<QString, std::shared_ptr<ZoneTenue>> zones;
};

#endif // DOUBLUREAPPLICATION_H
