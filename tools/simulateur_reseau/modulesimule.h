#ifndef MODULESIMULE_H
#define MODULESIMULE_H

#include "motifvaleur.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

// One simulated radio module: who it is, where it hangs in the tree, what it
// sends and when it keeps quiet.
class ModuleSimule
{
public:
    // Reads "module=0011 parent=BR type=A periode=10 valeur=21.5 ...".
    static bool lire(const QString &description, ModuleSimule *module, QString *erreur);

    // The frame as the radio firmware writes it: the type letter, then
    // ":"-separated fields: module, parent, rank in tenths, the values in
    // tenths, battery in tenths, and the supply indicator for type E.
    QByteArray trame(double secondes, int numeroTrame) const;

    bool estSilencieux(double secondes) const;
    // When the current silence ends (negative if it never does).
    double finDuSilence(double secondes) const;

    QString adresse;
    QString parent = QStringLiteral("BR");
    QChar type = QLatin1Char('A');
    double periode = 10.0;
    double decalage =
        -1.0; // first frame after this many seconds; negative: chosen by the simulator
    MotifValeur valeur{20.0};
    MotifValeur valeur2{50.0};
    MotifValeur batterie{3.6};
    MotifValeur alim{0.0};
    double rank = -1.0;                    // negative: 13 per level, from the tree
    QList<QPair<double, double>> silences; // start, duration (negative: for ever)
};

#endif // MODULESIMULE_H
