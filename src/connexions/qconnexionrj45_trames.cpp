#include "connexions/qconnexionrj45.h"

QConnexionRJ45::Reponse::Reponse() = default;
QConnexionRJ45::Reponse::Reponse(const QString &id, const QByteArray &donnees)
    : id(id)
    , donnees(donnees)
{
}
QString QConnexionRJ45::trameToString(const QByteArray &) { return {}; }
void QConnexionRJ45::ajouterDerniereTrame(Reponse *, QList<Reponse *> *) const {}
void QConnexionRJ45::supprimerDerniereTrame(const QString &, QList<Reponse *> *) const {}
QConnexionRJ45::Reponse *QConnexionRJ45::recupererDerniereTrame(const QString &,
                                                                QList<Reponse *> *) const
{
    return nullptr;
}
