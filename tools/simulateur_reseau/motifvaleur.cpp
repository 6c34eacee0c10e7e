#include "motifvaleur.h"

#include <QRandomGenerator>
#include <QStringList>

#include <cmath>

MotifValeur::MotifValeur(double constante)
    : nombres{constante}
{}

bool MotifValeur::lire(const QString &texte, MotifValeur *motif, QString *erreur)
{
    const QString t = texte.trimmed();
    bool ok = false;
    const double constante = t.toDouble(&ok);
    if (ok) {
        *motif = MotifValeur(constante);
        return true;
    }
    const int ouverture = t.indexOf(QLatin1Char('('));
    if (ouverture <= 0 || !t.endsWith(QLatin1Char(')'))) {
        *erreur = QStringLiteral("'%1' is neither a number nor name(arguments)").arg(t);
        return false;
    }
    const QString nom = t.left(ouverture);
    const QStringList arguments =
        t.mid(ouverture + 1, t.size() - ouverture - 2).split(QLatin1Char(','));
    QList<double> nombres;
    for (const QString &a : arguments) {
        nombres.append(a.trimmed().toDouble(&ok));
        if (!ok) {
            *erreur = QStringLiteral("'%1' is not a number in '%2'").arg(a, t);
            return false;
        }
    }
    struct Forme
    {
        const char *nom;
        MotifValeur::Forme forme;
        int minimum;
        int maximum;
    };
    static const Forme formes[] = {{"sinus", MotifValeur::Forme::Sinus, 3, 3},
                                   {"rampe", MotifValeur::Forme::Rampe, 2, 2},
                                   {"alterne", MotifValeur::Forme::Alterne, 1, 1000},
                                   {"hasard", MotifValeur::Forme::Hasard, 2, 2}};
    for (const Forme &f : formes) {
        if (nom != QLatin1String(f.nom))
            continue;
        if (nombres.size() < f.minimum || nombres.size() > f.maximum) {
            *erreur = QStringLiteral("wrong number of arguments in '%1'").arg(t);
            return false;
        }
        if (f.forme == MotifValeur::Forme::Sinus && nombres.at(2) <= 0.0) {
            *erreur = QStringLiteral("the period of '%1' must be positive").arg(t);
            return false;
        }
        motif->forme = f.forme;
        motif->nombres = nombres;
        return true;
    }
    *erreur = QStringLiteral("unknown pattern '%1' (sinus, rampe, alterne, hasard)").arg(nom);
    return false;
}

double MotifValeur::valeur(double secondes, int trame) const
{
    switch (forme) {
    case Forme::Constante:
        return nombres.at(0);
    case Forme::Sinus:
        return nombres.at(0) + nombres.at(1) * std::sin(2.0 * M_PI * secondes / nombres.at(2));
    case Forme::Rampe:
        return nombres.at(0) + nombres.at(1) * trame;
    case Forme::Alterne:
        return nombres.at(trame % nombres.size());
    case Forme::Hasard:
        return nombres.at(0) +
               (nombres.at(1) - nombres.at(0)) * QRandomGenerator::global()->generateDouble();
    }
    return 0.0;
}
