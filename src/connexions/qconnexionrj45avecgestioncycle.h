#ifndef QCONNEXIONRJ45AVECGESTIONCYCLE_H
#define QCONNEXIONRJ45AVECGESTIONCYCLE_H

#include "connexions/qconnexionrj45.h"

#include <QDateTime>
#include <QList>
#include <QString>

// A connection that also drives cycles on the device it measures: it keeps
// the cycle states still to handle and allows one cycle treatment a minute.
// It adds no measurement of its own.
class QConnexionRJ45AvecGestionCycle : public QConnexionRJ45
{
    Q_OBJECT
public:
    // One cycle state reported by the device.
    class EtatCycle
    {
    public:
        EtatCycle();

        bool equals(const EtatCycle &autre) const;

        qint32 code = 0;
        QString premierTexte;
        QString secondTexte;
    };

    explicit QConnexionRJ45AvecGestionCycle(const QString &type);
    QConnexionRJ45AvecGestionCycle(const QString &type, int nbMinutes);
    ~QConnexionRJ45AvecGestionCycle() override;

    // Filled and emptied by the caller.
    QList<EtatCycle> *getLesEtatCycle() { return lesEtatCycle; }
    bool aDesCyclesAGerer() const;
    bool TraitementCyclePossible() const;
    QDateTime getDateDernierTraitementCycle() const { return dateDernierTraitementCycle; }
    void setDateDernierTraitementCycle(const QDateTime &date) { dateDernierTraitementCycle = date; }

private:
    Q_DISABLE_COPY(QConnexionRJ45AvecGestionCycle)

    QList<EtatCycle> *lesEtatCycle;
    QDateTime dateDernierTraitementCycle;
};

#endif // QCONNEXIONRJ45AVECGESTIONCYCLE_H
