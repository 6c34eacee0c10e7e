#include "app/acquisitionradio.h"

#include "connexions/qradio.h"
#include "radio/fonctions_bases.h"

namespace {
const QString PREFIXE_RADIO = QStringLiteral("RADIO");
const QString MOT_CONTACT = QStringLiteral("contact");
} // namespace

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

// The offset is deliberately not part of a sensor: changing it alone must not
// cost the channel its connection and that connection's history.
bool AcquisitionRadio::capteur::estIdentique(const capteur &autre) const
{
    return parametres == autre.parametres && voie == autre.voie && type == autre.type &&
           adresse == autre.adresse && numero == autre.numero;
}

// Loaded once: the main application never renumbers its channel types while
// the service runs.
void AcquisitionRadio::chargerLesTypesVoies()
{
    fonctions_bases base(nullptr);
    base.ouvre_base();
    typesVoies = base.retourne_type_voies();
}

bool AcquisitionRadio::typeEstRADIO(int type) const
{
    if (type < 0 || type >= typesVoies.size())
        return false;
    return typesVoies.at(type).startsWith(PREFIXE_RADIO, Qt::CaseSensitive);
}

bool AcquisitionRadio::typeEstRADIOContact(int type) const
{
    return typeEstRADIO(type) && typesVoies.at(type).toLower().contains(MOT_CONTACT);
}

QString AcquisitionRadio::indexTypeToString(int type) const
{
    if (type < 0 || type >= typesVoies.size())
        return QString();
    return typesVoies.at(type);
}

bool AcquisitionRadio::capteurDejaRecupere(const capteur &c) const
{
    for (const capteur &recupere : capteursRecuperes) {
        if (recupere.estIdentique(c))
            return true;
    }
    return false;
}

void AcquisitionRadio::effaceCapteurRecupere(int voie)
{
    for (int i = capteursRecuperes.size() - 1; i >= 0; --i) {
        if (capteursRecuperes.at(i).voie != voie)
            continue;
        ecrireLog(QStringLiteral("Retrait du capteur RJ45 %1").arg(voie), false);
        ecrireLog(QStringLiteral("(avant retrait nb = %1 / %2)")
                      .arg(capteursRecuperes.size())
                      .arg(connexions.size()),
                  false);
        capteursRecuperes.removeAt(i);
    }
    // The connection itself stays alive: the map never owned it.
    connexions.remove(voie);
}

void AcquisitionRadio::ajouterCapteurRecupere(const capteur &c)
{
    effaceCapteurRecupere(c.voie);
    capteursRecuperes.append(c);
    connexions.remove(c.voie);
}

QConnexionRJ45 *AcquisitionRadio::creerConnexionRJ45(const capteur &c)
{
    if (!typeEstRADIO(c.type)) {
        ecrireLog(QStringLiteral("Type %1 inconnu : %2").arg(c.type).arg(indexTypeToString(c.type)),
                  false);
        return nullptr;
    }
    auto *radio = new QRadio(c.adresse, c.numero);
    if (typeEstRADIOContact(c.type))
        radio->estContact = true;
    // A replaced connection is no longer referenced by the registry but lives
    // on with the service, as it always did; parenting only lets a service
    // object that is destroyed (in tests and tools) take its connections along.
    radio->setParent(this);
    return radio;
}

void AcquisitionRadio::enregistrerVoieRadio(int voie, int type, const QByteArray &texteAdresse,
                                            int numero)
{
    const QString texte = QString::fromUtf8(texteAdresse);
    QStringList parties = texte.split(QLatin1Char(':'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    QString adresse;
    QStringList parametres;
    if (parties.size() < 2) {
        adresse = texte;
    } else {
        adresse = parties.takeFirst();
        parametres = parties;
    }
    const capteur c(voie, type, adresse, numero, &parametres);
    if (capteurDejaRecupere(c))
        return;
    ajouterCapteurRecupere(c);
    if (QConnexionRJ45 *connexion = creerConnexionRJ45(c))
        connexions[c.voie] = connexion;
}
