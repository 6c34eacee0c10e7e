#include "connexions/qconnexionrj45avecgestioncycle.h"

#include "commun/horloge.h"

namespace {
// A device is not asked to handle a cycle more than once a minute.
constexpr qint64 INTERVALLE_TRAITEMENT_CYCLE_S = 60;
} // namespace

QConnexionRJ45AvecGestionCycle::EtatCycle::EtatCycle() = default;

bool QConnexionRJ45AvecGestionCycle::EtatCycle::equals(const EtatCycle &autre) const
{
    return code == autre.code && premierTexte == autre.premierTexte &&
           secondTexte == autre.secondTexte;
}

QConnexionRJ45AvecGestionCycle::QConnexionRJ45AvecGestionCycle(const QString &type)
    : QConnexionRJ45(type)
    , lesEtatCycle(new QList<EtatCycle>)
{}

QConnexionRJ45AvecGestionCycle::QConnexionRJ45AvecGestionCycle(const QString &type, int nbMinutes)
    : QConnexionRJ45(type, nbMinutes)
    , lesEtatCycle(new QList<EtatCycle>)
{}

QConnexionRJ45AvecGestionCycle::~QConnexionRJ45AvecGestionCycle()
{
    delete lesEtatCycle;
}

bool QConnexionRJ45AvecGestionCycle::aDesCyclesAGerer() const
{
    return lesEtatCycle && !lesEtatCycle->isEmpty();
}

bool QConnexionRJ45AvecGestionCycle::TraitementCyclePossible() const
{
    if (dateDernierTraitementCycle.isNull())
        return true;
    return Horloge::maintenant() >=
           dateDernierTraitementCycle.addSecs(INTERVALLE_TRAITEMENT_CYCLE_S);
}
