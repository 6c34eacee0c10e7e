#include "modulesimule.h"

#include <QStringList>

#include <cmath>

namespace {
QByteArray dixiemes(double v)
{
    return QByteArray::number(static_cast<qint64>(std::llround(v * 10.0)));
}

// Letters with one value, with two, and with none.
const QString UNE_VALEUR = QStringLiteral("ACFG");
const QString DEUX_VALEURS = QStringLiteral("BDE");
const QString SANS_VALEUR = QStringLiteral("RZ");
} // namespace

bool ModuleSimule::lire(const QString &description, ModuleSimule *module, QString *erreur)
{
    ModuleSimule m;
    const QStringList paires = description.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &paire : paires) {
        const int egal = paire.indexOf(QLatin1Char('='));
        if (egal <= 0) {
            *erreur = QStringLiteral("'%1' is not key=value").arg(paire);
            return false;
        }
        const QString cle = paire.left(egal);
        const QString texte = paire.mid(egal + 1);
        bool ok = true;
        if (cle == QLatin1String("module")) {
            m.adresse = texte;
        } else if (cle == QLatin1String("parent")) {
            m.parent = texte;
        } else if (cle == QLatin1String("type")) {
            ok = texte.size() == 1 &&
                 QString(UNE_VALEUR + DEUX_VALEURS + SANS_VALEUR).contains(texte.at(0));
            if (ok)
                m.type = texte.at(0);
            else
                *erreur = QStringLiteral("type must be one of A B C D E F G R Z");
        } else if (cle == QLatin1String("periode")) {
            m.periode = texte.toDouble(&ok);
            ok = ok && m.periode > 0.0;
            if (!ok)
                *erreur = QStringLiteral("periode must be a positive number of seconds");
        } else if (cle == QLatin1String("decalage")) {
            m.decalage = texte.toDouble(&ok);
            if (!ok)
                *erreur = QStringLiteral("decalage must be a number of seconds");
        } else if (cle == QLatin1String("rank")) {
            m.rank = texte.toDouble(&ok);
            if (!ok)
                *erreur = QStringLiteral("rank must be a number");
        } else if (cle == QLatin1String("valeur")) {
            ok = MotifValeur::lire(texte, &m.valeur, erreur);
        } else if (cle == QLatin1String("valeur2")) {
            ok = MotifValeur::lire(texte, &m.valeur2, erreur);
        } else if (cle == QLatin1String("batterie")) {
            ok = MotifValeur::lire(texte, &m.batterie, erreur);
        } else if (cle == QLatin1String("alim")) {
            ok = MotifValeur::lire(texte, &m.alim, erreur);
        } else if (cle == QLatin1String("silence")) {
            const int plus = texte.indexOf(QLatin1Char('+'));
            bool ok2 = true;
            const double debut = (plus < 0 ? texte : texte.left(plus)).toDouble(&ok);
            const double duree = plus < 0 ? -1.0 : texte.mid(plus + 1).toDouble(&ok2);
            ok = ok && ok2 && debut >= 0.0 && (plus < 0 || duree > 0.0);
            if (ok)
                m.silences.append({debut, duree});
            else
                *erreur = QStringLiteral("silence is <start>+<duration> or <start>, in seconds");
        } else {
            *erreur = QStringLiteral("unknown key '%1'").arg(cle);
            ok = false;
        }
        if (!ok) {
            *erreur = QStringLiteral("%1 (in '%2')").arg(*erreur, paire);
            return false;
        }
    }
    if (m.adresse.isEmpty() || m.adresse.contains(QLatin1Char(':'))) {
        *erreur = QStringLiteral("module=<address> is required, without ':'");
        return false;
    }
    *module = m;
    return true;
}

QByteArray ModuleSimule::trame(double secondes, int numeroTrame) const
{
    QByteArray t;
    t += type.toLatin1();
    t += adresse.toUtf8() + ':' + parent.toUtf8() + ':' + dixiemes(rank);
    if (!SANS_VALEUR.contains(type))
        t += ':' + dixiemes(valeur.valeur(secondes, numeroTrame));
    if (DEUX_VALEURS.contains(type))
        t += ':' + dixiemes(valeur2.valeur(secondes, numeroTrame));
    t += ':' + dixiemes(batterie.valeur(secondes, numeroTrame));
    if (type == QLatin1Char('E'))
        t += ':' + QByteArray::number(
                       static_cast<qint64>(std::llround(alim.valeur(secondes, numeroTrame))));
    return t;
}

bool ModuleSimule::estSilencieux(double secondes) const
{
    for (const auto &s : silences) {
        if (secondes >= s.first && (s.second < 0.0 || secondes < s.first + s.second))
            return true;
    }
    return false;
}

double ModuleSimule::finDuSilence(double secondes) const
{
    double fin = secondes;
    for (const auto &s : silences) {
        if (secondes >= s.first && (s.second < 0.0 || secondes < s.first + s.second)) {
            if (s.second < 0.0)
                return -1.0;
            fin = qMax(fin, s.first + s.second);
        }
    }
    return fin;
}
