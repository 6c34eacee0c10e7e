#ifndef TABLEAU_H
#define TABLEAU_H

#include <QList>
#include <QString>

// The one table the bench prints: a line per figure, with its goal and
// whether the goal is met. Figures without a goal are shown for context.
class Tableau
{
public:
    // `rapport` is the ratio to the goal, or empty when a pass/fail says it all.
    void objectif(const QString &mesure, const QString &valeur, const QString &but,
                  const QString &rapport, bool atteint);
    void information(const QString &mesure, const QString &valeur);

    QString texte(const QString &titre) const;
    bool toutAtteint() const;

private:
    struct Ligne
    {
        QString mesure, valeur, but, rapport, verdict;
    };
    QList<Ligne> lignes;
    bool manque = false;
};

#endif // TABLEAU_H
