#include "tablemodules.h"

#include "arbreradio.h"
#include "lecturezones.h"
#include "miseenforme.h"
#include "radio/fonctions_bases.h"

using namespace MiseEnForme;

namespace TableModules {

Rapport rendre(quint32 maintenant)
{
    Rapport r;
    r.texte =
        QStringLiteral("Radio modules (%1)\n").arg(QLatin1String(fonctions_bases::CLE_ZONE_HF));
    const LectureZones::TableModules table = LectureZones::tableModules();
    if (!table) {
        r.absent(LectureZones::absence(QLatin1String(fonctions_bases::CLE_ZONE_HF)));
        return r;
    }
    Tableau t({QStringLiteral("slot"), QStringLiteral("address"), QStringLiteral("parent"),
               QStringLiteral("on"), QStringLiteral("type"), QStringLiteral("value"),
               QStringLiteral("battery"), QStringLiteral("hops"), QStringLiteral("rank"),
               QStringLiteral("step"), QStringLiteral("recept%"), QStringLiteral("usage%"),
               QStringLiteral("age s"), QStringLiteral("state")},
              QStringLiteral("dgggggdddddddg"));
    for (int i = 0; i < les_modules_radio::NB_MODULES; ++i) {
        const gestion_radio &m = table->modules[i];
        if (m.estLibre())
            continue;
        // A cleared present byte with an address left is a module the main
        // application asked to remove; it keeps its slot until then.
        QString etat;
        if (m.present == 0)
            etat = QStringLiteral("removed");
        else if (ArbreRadio::estSilencieux(m.dateheure_mesure, maintenant))
            etat = QStringLiteral("silent");
        else
            etat = QStringLiteral("ok");
        t.ajouter({QString::number(i), visible(m.numeroOctets()), visible(m.parentOctets()),
                   QString::number(static_cast<uchar>(m.present)), visible(m.typeOctets()),
                   visible(m.valeurOctets()), nombre(m.pile), QString::number(m.nb_sauts),
                   nombre(m.rank), nombre(m.current_rank), taux(m.taux_reception),
                   taux(m.taux_utilisation), age(m.dateheure_mesure, maintenant), etat});
    }
    r.texte += t.estVide() ? QStringLiteral("  (every slot is free)\n") : t.texte();
    return r;
}

} // namespace TableModules
