#ifndef MOTIFVALEUR_H
#define MOTIFVALEUR_H

#include <QList>
#include <QString>

// How a simulated quantity moves from one frame to the next:
//   21.5                      constant
//   sinus(mean,amplitude,s)   sine of the given period in seconds
//   rampe(start,step)         start + step x frame number
//   alterne(a,b,...)          the listed values in turn, one per frame
//   hasard(min,max)           uniform random
class MotifValeur
{
public:
    enum class Forme { Constante, Sinus, Rampe, Alterne, Hasard };

    MotifValeur() = default;
    explicit MotifValeur(double constante);

    static bool lire(const QString &texte, MotifValeur *motif, QString *erreur);

    // The value at `secondes` since the start, for the frame numbered `trame`.
    double valeur(double secondes, int trame) const;

private:
    Forme forme = Forme::Constante;
    QList<double> nombres{0.0};
};

#endif // MOTIFVALEUR_H
