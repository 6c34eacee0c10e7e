#include "miseenforme.h"

#include <QDateTime>

namespace MiseEnForme {

QString visible(const QByteArray &octets)
{
    QByteArray sortie;
    for (const char c : octets) {
        const auto u = static_cast<uchar>(c);
        if (u < 0x20 || u == 0x7F)
            sortie += QByteArray("\\x") + QByteArray::number(u, 16).rightJustified(2, '0');
        else
            sortie += c;
    }
    return QString::fromUtf8(sortie);
}

QString taux(double valeur)
{
    return valeur < 0.0 ? QStringLiteral("-") : QString::number(valeur, 'f', 1);
}

QString nombre(double valeur)
{
    return QString::number(valeur, 'g', 6);
}

bool dateConnue(quint32 date)
{
    return date != 0 && date != 0xFFFFFFFFu;
}

QString age(quint32 date, quint32 maintenant)
{
    if (!dateConnue(date))
        return QStringLiteral("-");
    return QString::number(static_cast<qint64>(maintenant) - static_cast<qint64>(date));
}

QString date(qint64 secondes)
{
    return QDateTime::fromSecsSinceEpoch(secondes).toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"));
}

Tableau::Tableau(const QStringList &entetes, const QString &alignements)
    : entetes(entetes)
    , alignements(alignements)
{}

void Tableau::ajouter(const QStringList &cellules)
{
    lignes.append(cellules);
}

QString Tableau::texte(const QString &retrait) const
{
    QList<QStringList> toutes{entetes};
    for (QStringList ligne : lignes) {
        for (QString &cellule : ligne) {
            if (cellule.isEmpty())
                cellule = QStringLiteral("-");
        }
        toutes.append(ligne);
    }
    QVector<int> largeurs(entetes.size(), 0);
    for (const QStringList &ligne : qAsConst(toutes)) {
        for (int c = 0; c < ligne.size() && c < largeurs.size(); ++c)
            largeurs[c] = qMax(largeurs.at(c), ligne.at(c).size());
    }
    QString t;
    for (const QStringList &ligne : qAsConst(toutes)) {
        QString l = retrait;
        for (int c = 0; c < ligne.size() && c < largeurs.size(); ++c) {
            const bool droite = c < alignements.size() && alignements.at(c) == QLatin1Char('d');
            l += droite ? ligne.at(c).rightJustified(largeurs.at(c))
                        : ligne.at(c).leftJustified(largeurs.at(c));
            l += QStringLiteral("  ");
        }
        while (l.endsWith(QLatin1Char(' ')))
            l.chop(1);
        t += l + QLatin1Char('\n');
    }
    return t;
}

} // namespace MiseEnForme
