#include "connexions/qconnexionrj45.h"

QDateTime QConnexionRJ45::dh_demarrage = QDateTime::currentDateTime();
const double QConnexionRJ45::VALEUR_DEFAUT_GLOBAL = 0.0;
int QConnexionRJ45::NETWORK_TIMEOUT_MS = 10000;
const QString QConnexionRJ45::FICHIER_LOG = QStringLiteral("/var/log/acquisitionrj45.log");

QConnexionRJ45::QConnexionRJ45(const QString &type, int nbMinutes)
    : nbMinutesHistorique(nbMinutes)
    , nbSecondesMaximumHistorique(60L * nbMinutes)
    , historique(new QMap<long, double>)
    , typeConnexionRJ45(type)
{
}
QConnexionRJ45::QConnexionRJ45(const QString &type)
    : QConnexionRJ45(type, 3)
{
}
QConnexionRJ45::~QConnexionRJ45() = default;
void QConnexionRJ45::definirEcrireFichierLog(bool) {}
double QConnexionRJ45::getMesureEnCours() { return getMesureEnCoursSousType(); }
void QConnexionRJ45::ajouterDansHistorique(double) {}
void QConnexionRJ45::purgerAnciennesMesuresHistorique() {}
double QConnexionRJ45::getDerniereMesureHistorique() { return valeurDefaut; }
double QConnexionRJ45::getAncienneMesureDeNSecondes(int, bool *) { return 0.0; }
void QConnexionRJ45::ecrireLog(const QString &, bool, bool) const {}
QString QConnexionRJ45::getProcessMemoryUsage() { return {}; }
