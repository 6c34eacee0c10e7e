#include "connexions/qradio.h"

const QString QRadio::TYPE_ACQUISITION = QStringLiteral("radio");
const double QRadio::VALEUR_DEFAUT_GLOBAL = -55.0;
QRadio::SourceLectures QRadio::sourceLectures;

QRadio::QRadio(const QString &adresseModule, int numeroMesure)
    : QConnexionRJ45(TYPE_ACQUISITION, 30)
    , adresseModule(adresseModule)
    , numeroMesure(numeroMesure)
{
}
double QRadio::getMesureEnCoursSousType() { throw -1; }
QString QRadio::genererIdTrame() { return {}; }
