#include "commun/environnement.h"

#include <QByteArray>

namespace {
QString variable(const char *nom)
{
    return QString::fromLocal8Bit(qgetenv(nom));
}

// Single-quoted for /bin/sh, so that a sandbox path with spaces stays one word.
QString entreApostrophes(const QString &texte)
{
    QString resultat = texte;
    resultat.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + resultat + QLatin1Char('\'');
}
} // namespace

QString Environnement::racine()
{
    QString r = variable("ACQUISITIONRADIO_RACINE");
    while (r.endsWith(QLatin1Char('/')))
        r.chop(1);
    return r;
}

QString Environnement::chemin(const QString &cheminAbsolu)
{
    return racine() + cheminAbsolu;
}

QByteArray Environnement::commande(const QString &ligneDeCommande)
{
    const QString r = racine();
    if (r.isEmpty())
        return ligneDeCommande.toLocal8Bit();
    const int espace = ligneDeCommande.indexOf(QLatin1Char(' '));
    const QString programme = espace < 0 ? ligneDeCommande : ligneDeCommande.left(espace);
    const QString arguments = espace < 0 ? QString() : ligneDeCommande.mid(espace);
    return (entreApostrophes(r + programme) + arguments).toLocal8Bit();
}

QString Environnement::adresseLiaison(const QString &adresseParDefaut)
{
    const QString adresse = variable("ACQUISITIONRADIO_ADRESSE").trimmed();
    return adresse.isEmpty() ? adresseParDefaut : adresse;
}

quint16 Environnement::portLiaison(quint16 portParDefaut)
{
    bool ok = false;
    const uint port = variable("ACQUISITIONRADIO_PORT").trimmed().toUInt(&ok);
    return ok && port <= 65535 ? static_cast<quint16>(port) : portParDefaut;
}
