#include "sante.h"

#include "miseenforme.h"

#include "commun/environnement.h"

#include <QDir>
#include <QJsonDocument>

namespace Sante {

namespace {

QString nomNiveau(Niveau n)
{
    switch (n) {
    case Niveau::Ok:
        return QStringLiteral("ok");
    case Niveau::Avertissement:
        return QStringLiteral("warning");
    case Niveau::Critique:
        return QStringLiteral("critical");
    }
    return QString();
}

QString colonne(const Constat &c)
{
    if (c.information)
        return QStringLiteral("info");
    // Upper case where something needs looking at.
    return c.niveau == Niveau::Ok ? nomNiveau(c.niveau) : nomNiveau(c.niveau).toUpper();
}

QString racine()
{
    const QString r = Environnement::racine();
    return r.isEmpty() ? QStringLiteral("/") : r;
}

} // namespace

QString texte(const Bilan &bilan)
{
    QString t = QStringLiteral("acquisitionradio health - %1 - root %2 - segments under %3 - "
                               "port %4\n")
                    .arg(MiseEnForme::date(bilan.maintenant), racine(), QDir::tempPath())
                    .arg(bilan.port);
    int largeur = 0;
    for (const Constat &c : bilan.constats)
        largeur = qMax(largeur, c.nom.size());
    for (const Constat &c : bilan.constats) {
        t += QStringLiteral("  %1  %2  %3\n")
                 .arg(colonne(c), -8)
                 .arg(QString(c.nom).replace(QLatin1Char('_'), QLatin1Char(' ')), -largeur)
                 .arg(c.texte);
    }
    const Niveau n = bilan.niveau();
    t += QStringLiteral("Health: %1 (exit status %2)\n")
             .arg(n == Niveau::Ok ? nomNiveau(n) : nomNiveau(n).toUpper())
             .arg(static_cast<int>(n));
    return t;
}

QByteArray json(const Bilan &bilan)
{
    QJsonObject constats;
    for (const Constat &c : bilan.constats) {
        QJsonObject o = c.details;
        o.insert(QStringLiteral("status"),
                 c.information ? QStringLiteral("info") : nomNiveau(c.niveau));
        o.insert(QStringLiteral("text"), c.texte);
        constats.insert(c.nom, o);
    }
    const Niveau n = bilan.niveau();
    const QJsonObject racineJson{{QStringLiteral("status"), nomNiveau(n)},
                                 {QStringLiteral("exit_status"), static_cast<int>(n)},
                                 {QStringLiteral("time"), static_cast<qint64>(bilan.maintenant)},
                                 {QStringLiteral("root"), racine()},
                                 {QStringLiteral("tmpdir"), QDir::tempPath()},
                                 {QStringLiteral("port"), bilan.port},
                                 {QStringLiteral("checks"), constats}};
    return QJsonDocument(racineJson).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace Sante
