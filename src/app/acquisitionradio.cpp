#include "app/acquisitionradio.h"

#include "log/fichierval0.h"

#include <QDebug>

AcquisitionRadio *acq = nullptr;

AcquisitionRadio::AcquisitionRadio()
    : LogQuintaris(QStringLiteral("acquisition_radio"))
{
    chargerLesTypesVoies();
}

// The connections are not owned by the registry map: replaced ones were
// left alive on purpose and the live ones go with the process.
AcquisitionRadio::~AcquisitionRadio() = default;

void AcquisitionRadio::ecrireLog(const QString &texte, bool fichier)
{
    LogQuintaris::ecrireLog(texte);
    if (fichier)
        FichierVal0::ajouter(texte, ""); // no end-of-line, as the main application reads it
}

void AcquisitionRadio::ecrireConsole(LogQuintaris::LigneLog ligne)
{
    qDebug().noquote() << ligne.toString();
}

void AcquisitionRadio::setLog()
{
    connect(this, &LogQuintaris::log, this, &AcquisitionRadio::ecrireConsole, Qt::DirectConnection);
    serveur.setLog();
}

QList<DonneesUDP> AcquisitionRadio::LesDonneesUDP() const
{
    return serveur.copieDonneesUDP();
}

bool AcquisitionRadio::LaDonneeUDP(const QString &module, DonneesUDP *lecture) const
{
    return serveur.copieDonneeUDP(module, lecture);
}
