#include "connexions/qradio.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"
#include "udp/dernieres_lectures.h"

#include <QStringList>

const QString QRadio::TYPE_ACQUISITION = QStringLiteral("radio");
const double QRadio::VALEUR_DEFAUT_GLOBAL = -55.0;
QRadio::SourceLectures QRadio::sourceLectures;

namespace {
// One record of the module in the service's reading list as it stands now, as
// a copy: the reception thread replaces it when the module's next frame arrives.
bool lectureActuelle(const QString &module, int rang, DonneesUDP *lecture)
{
    if (QRadio::sourceLectures)
        return QRadio::sourceLectures(module, rang, lecture);
    return rang == 0 && acq && acq->LaDonneeUDP(module, lecture);
}
} // namespace

// The list drops nothing a channel could still take.
static_assert(DernieresLectures::AGE_UTILE >= QRadio::NB_SECONDE_VALIDITE_MESURE,
              "readings are kept as long as a channel may take them");

QRadio::QRadio(const QString &adresseModule, int numeroMesure)
    : QConnexionRJ45(TYPE_ACQUISITION, 30)
    , adresseModule(adresseModule)
    , numeroMesure(numeroMesure)
{
    // Every ordinary line would run one ps process per channel and cycle.
    setEcrireLog(false);
    setValeurDefaut(VALEUR_DEFAUT_GLOBAL);
}

QString QRadio::genererIdTrame()
{
    return adresseModule + QLatin1Char(':') + QString::number(numeroMesure);
}

double QRadio::getMesureEnCoursSousType()
{
    const quint32 maintenant = Horloge::maintenantSecondes();

    // The module's records are read afresh one by one, so that a reading that
    // arrives during the walk is still seen.
    DonneesUDP lecture;
    for (int rang = 0; lectureActuelle(adresseModule, rang, &lecture); ++rang) {
        // Unsigned: a reading dated in the future is as useless as an old one.
        const quint32 age = maintenant - static_cast<quint32>(lecture.dateheure.toSecsSinceEpoch());
        if (age > static_cast<quint32>(NB_SECONDE_VALIDITE_MESURE)) {
            // A later record of the same module may still be fresh.
            ecrireLog(QStringLiteral("Mesure trop ancienne de %1 secondes").arg(age), false, false);
            continue;
        }

        if (numeroMesure == 2)
            return lecture.batterie;
        if (estContact && numeroMesure == 1)
            return static_cast<double>(lecture.alim);

        const QStringList operandes = lecture.valeur.split(QLatin1Char(':'), Qt::KeepEmptyParts);
        if (numeroMesure >= 0 && numeroMesure < operandes.size()) {
            // A part that is not a number reads as 0.0, like a closed contact.
            const double nombre = operandes.at(numeroMesure).toDouble();
            if (estContact)
                return nombre > 0 ? 1.0 : 0.0;
            return nombre;
        }

        ecrireLog(QStringLiteral("Pas d'opérande dans la valeur %1").arg(lecture.valeur), false,
                  false);
        ecrireLog(QStringLiteral("Aucune mesure trouvée : envoi d'une exception"), false, false);
        throw -1;
    }

    ecrireLog(QStringLiteral("Aucune mesure trouvée : envoi d'une exception"), false, false);
    throw -1;
}
