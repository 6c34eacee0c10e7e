#include "tableau.h"

#include <QStringList>

void Tableau::objectif(const QString &mesure, const QString &valeur, const QString &but,
                       const QString &rapport, bool atteint)
{
    lignes.append({mesure, valeur, but, rapport, atteint ? QStringLiteral("pass") : "FAIL"});
    manque = manque || !atteint;
}

void Tableau::information(const QString &mesure, const QString &valeur)
{
    lignes.append({mesure, valeur, QString(), QString(), QString()});
}

bool Tableau::toutAtteint() const
{
    return !manque;
}

QString Tableau::texte(const QString &titre) const
{
    QList<Ligne> toutes{{"measure", "value", "goal", "ratio", "result"}};
    toutes += lignes;
    int largeurs[5] = {};
    for (const Ligne &l : qAsConst(toutes)) {
        const QString champs[5] = {l.mesure, l.valeur, l.but, l.rapport, l.verdict};
        for (int c = 0; c < 5; ++c)
            largeurs[c] = qMax(largeurs[c], champs[c].size());
    }
    QStringList sortie{titre};
    for (int i = 0; i < toutes.size(); ++i) {
        const Ligne &l = toutes.at(i);
        const QString champs[5] = {l.mesure, l.valeur, l.but, l.rapport, l.verdict};
        QString ligne;
        for (int c = 0; c < 5; ++c)
            ligne += champs[c].leftJustified(largeurs[c] + 2);
        sortie << ligne.trimmed();
        if (i == 0)
            sortie << QString(ligne.trimmed().size(), QLatin1Char('-'));
    }
    return sortie.join(QLatin1Char('\n')) + QLatin1Char('\n');
}
