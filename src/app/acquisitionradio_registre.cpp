#include "app/acquisitionradio.h"

#include "connexions/qconnexionrj45.h"

AcquisitionRadio::capteur::capteur(int voie, int type, const QString &adresse, int numero,
                                   QStringList *parametres)
    : voie(voie)
    , type(type)
    , adresse(adresse)
    , numero(numero)
{
    if (parametres)
        this->parametres = *parametres;
}
bool AcquisitionRadio::capteur::estIdentique(const capteur &) const { return false; }
void AcquisitionRadio::chargerLesTypesVoies() {}
bool AcquisitionRadio::typeEstRADIO(int) const { return false; }
bool AcquisitionRadio::typeEstRADIOContact(int) const { return false; }
QString AcquisitionRadio::indexTypeToString(int) const { return {}; }
bool AcquisitionRadio::capteurDejaRecupere(const capteur &) const { return false; }
void AcquisitionRadio::effaceCapteurRecupere(int) {}
void AcquisitionRadio::ajouterCapteurRecupere(const capteur &) {}
QConnexionRJ45 *AcquisitionRadio::creerConnexionRJ45(const capteur &) { return nullptr; }
void AcquisitionRadio::enregistrerVoieRadio(int, int, const QByteArray &, int) {}
