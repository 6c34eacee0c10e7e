#include "reseau.h"

#include "bacasable.h"
#include "doublureapplication.h"

#include <QFile>

#include <QByteArrayList>

namespace {
constexpr int NB_SOUS_LA_PASSERELLE = 10;
constexpr int RANK_DIXIEMES[] = {260, 520}; // by depth: one hop, two hops
constexpr int BATTERIE_DIXIEMES = 36;
} // namespace

namespace Reseau {

QByteArray adresse(int module)
{
    return QByteArray::number(0x1000 + module, 16).rightJustified(8, '0');
}

Lecture lecture(int module, quint32 numero)
{
    const bool direct = module < NB_SOUS_LA_PASSERELLE;
    Lecture l;
    l.module = adresse(module);
    l.parent = direct ? QByteArray("br") : adresse(module % NB_SOUS_LA_PASSERELLE);
    l.rank = RANK_DIXIEMES[direct ? 0 : 1] / 10;
    const int dixiemes = 150 + module + static_cast<int>(numero % 50);
    l.valeurNombre = dixiemes / 10.0;
    l.valeur = QByteArray::number(l.valeurNombre, 'g', 6);
    return l;
}

QByteArray trame(int module, quint32 numero)
{
    const Lecture l = lecture(module, numero);
    const QByteArrayList champs = {l.module, l.parent, QByteArray::number(l.rank * 10),
                                   QByteArray::number(qRound(l.valeurNombre * 10)),
                                   QByteArray::number(BATTERIE_DIXIEMES)};
    return QByteArray("A") + champs.join(':');
}

double pasDeRang(int module)
{
    // Under the border router (absent from the table): rank less the root's
    // 13; under another module: rank less the parent's.
    return module < NB_SOUS_LA_PASSERELLE ? RANK_DIXIEMES[0] / 10 - 13
                                          : (RANK_DIXIEMES[1] - RANK_DIXIEMES[0]) / 10;
}

bool preparerAppareil(const BacASable &bac, DoublureApplication &doublure, double offset,
                      QString *erreur)
{
    if (!DoublureApplication::creerBaseAppareil(bac.chemin("/var/base/itessalin.db"),
                                                {"RJ45", "RADIO", "RADIO Contact"}, erreur) ||
        !doublure.creerZones(erreur))
        return false;
    doublure.setNbVoiesPubliees(DoublureApplication::NB_VOIES);
    for (int voie = 1; voie <= DoublureApplication::NB_VOIES; ++voie)
        doublure.ecrireVoie(voie, 1, adresse(voie - 1), 0, voie % 8 ? 0 : offset);
    QFile adresseBR(bac.chemin("/root/br_itessalin.txt"));
    return adresseBR.open(QIODevice::WriteOnly) && adresseBR.write("fd00::1\n") > 0;
}

} // namespace Reseau
