// Fuzz target of the radio frame decoder: any datagram, as the reception
// loop hands it over, must decode without fault and keep the decoder's rules.

#include "udp/decodeurtrame.h"

#include <QByteArray>
#include <QDateTime>
#include <QStringList>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void exiger(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *donnees, size_t taille)
{
    // The receive buffer holds at most 1024 bytes.
    const int longueur = static_cast<int>(taille > 1024 ? 1024 : taille);
    const QByteArray datagramme(reinterpret_cast<const char *>(donnees), longueur);
    const QString trame = DecodeurTrame::texteDatagramme(datagramme);
    exiger(!trame.contains(QChar(0)));

    const QDateTime instant = QDateTime::fromSecsSinceEpoch(1795000000);
    DonneesUDP lecture;
    const DecodeurTrame::Issue issue = DecodeurTrame::decoder(trame, instant, &lecture);
    exiger((issue == DecodeurTrame::Issue::Vide) == trame.isEmpty());
    if (issue != DecodeurTrame::Issue::Acceptee) {
        exiger(lecture.module.isEmpty() && lecture.valeur.isEmpty());
        return 0;
    }

    const QChar type = trame.at(0);
    const QStringList champs = trame.mid(1).split(QLatin1Char(':'));
    exiger(lecture.type == QString(type));
    exiger(champs.size() >= DecodeurTrame::seuil(type));
    exiger(lecture.module == champs.at(0));
    exiger(lecture.parent == champs.value(1));
    exiger(lecture.dateheure == instant);
    const int nbValeurs = lecture.valeur.isEmpty() ? 0 : lecture.valeur.count(QLatin1Char(':')) + 1;
    if (type == QLatin1Char('R') || type == QLatin1Char('Z'))
        exiger(nbValeurs == 0);
    else if (type == QLatin1Char('B') || type == QLatin1Char('D') || type == QLatin1Char('E'))
        exiger(nbValeurs == 2);
    else
        exiger(nbValeurs == 1);
    exiger(type == QLatin1Char('E') || lecture.alim == 0);

    // The rank handed to the module update is always defined.
    const int rang = DecodeurTrame::rangEntier(lecture.rank);
    if (std::isfinite(lecture.rank) && std::fabs(lecture.rank) < 2147483647.0)
        exiger(rang == static_cast<int>(std::trunc(lecture.rank)));
    return 0;
}
