#include "udp/decodeurtrame.h"

#include <QStringList>

#include <cmath>
#include <limits>

namespace {

struct RegleType
{
    char lettre;
    int seuil;         // fewest fields accepted
    int nbValeurs;     // measured values, from field 3 on
    int champBatterie; // field holding the battery, in tenths
    bool avecAlim;     // field 6 holds the supply indicator
};

// The thresholds are one below the last field some types read (A is accepted
// with three fields yet takes its value from the fourth): modules in the field
// rely on it, so a missing field simply reads as an empty one, that is 0.
const RegleType REGLES[] = {
    {'A', 3, 1, 4, false}, {'B', 4, 2, 5, false}, {'C', 3, 1, 4, false},
    {'D', 4, 2, 5, false}, {'E', 5, 2, 5, true},  {'F', 3, 1, 4, false},
    {'G', 3, 1, 4, false}, {'R', 3, 0, 3, false}, {'Z', 3, 0, 3, false},
};

const RegleType *regle(QChar type)
{
    for (const RegleType &r : REGLES) {
        if (type == QLatin1Char(r.lettre))
            return &r;
    }
    return nullptr;
}

QString formater(double valeur)
{
    return QString::number(valeur, 'g', 6);
}

} // namespace

QString DecodeurTrame::texteDatagramme(const QByteArray &octets)
{
    const uint longueur = qstrnlen(octets.constData(), static_cast<uint>(octets.size()));
    return QString::fromUtf8(octets.constData(), static_cast<int>(longueur));
}

int DecodeurTrame::seuil(QChar type)
{
    const RegleType *r = regle(type);
    return r ? r->seuil : -1;
}

int DecodeurTrame::rangEntier(double rank)
{
    if (std::isnan(rank))
        return 0;
    if (rank >= static_cast<double>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (rank <= static_cast<double>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return static_cast<int>(rank);
}

DecodeurTrame::Issue DecodeurTrame::decoder(const QString &trame, const QDateTime &dateheure,
                                            DonneesUDP *donnees)
{
    if (trame.isEmpty())
        return Issue::Vide;
    const QChar type = trame.at(0);
    const RegleType *r = regle(type);
    if (!r)
        return Issue::TypeInconnu;

    const QStringList champs =
        trame.mid(1).split(QLatin1Char(':'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (champs.size() < r->seuil)
        return Issue::TropCourte;

    const auto champ = [&champs](int i) { return i < champs.size() ? champs.at(i) : QString(); };
    // toDouble gives 0 for a field that is not a number.
    const auto dixiemes = [&champ](int i) { return champ(i).toDouble() / 10; };

    QString valeur;
    if (r->nbValeurs >= 1)
        valeur = formater(dixiemes(3));
    if (r->nbValeurs >= 2)
        valeur += QLatin1Char(':') + formater(dixiemes(4));

    if (donnees) {
        *donnees = DonneesUDP(dateheure, QString(type), champ(0), champ(1),
                              champ(2).toDouble() * 0.1, valeur, dixiemes(r->champBatterie),
                              r->avecAlim ? champ(6).toInt(nullptr, 10) : 0);
    }
    return Issue::Acceptee;
}
