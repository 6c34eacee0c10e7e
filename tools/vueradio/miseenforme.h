#ifndef MISEENFORME_H
#define MISEENFORME_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVector>

// Plain-text presentation shared by the inspector's sections.
namespace MiseEnForme {

// Bytes read from a segment or a database, made printable: control bytes show
// as \xNN, so that a damaged field cannot garble the terminal.
QString visible(const QByteArray &octets);

// A rate as the service stores it: -1 means not computed yet.
QString taux(double valeur);
QString nombre(double valeur);

// A frame time of 0 or all bits set is the "no date" of the module table.
bool dateConnue(quint32 date);
// now - date in seconds, as text; "-" without a date.
QString age(quint32 date, quint32 maintenant);
QString date(qint64 secondes);

// A table with aligned columns; an empty cell is shown as "-" so that columns
// never collapse. Columns are separated by two blanks.
class Tableau
{
public:
    // One letter per column: 'g' left-aligned, 'd' right-aligned.
    Tableau(const QStringList &entetes, const QString &alignements);

    void ajouter(const QStringList &cellules);
    bool estVide() const { return lignes.isEmpty(); }
    QString texte(const QString &retrait = QStringLiteral("  ")) const;

private:
    QStringList entetes;
    QString alignements;
    QList<QStringList> lignes;
};

} // namespace MiseEnForme

#endif // MISEENFORME_H
