#include "udp/arbremodules.h"

#include <QHash>
#include <QVector>

const QString ArbreModules::NOM_RACINE = QStringLiteral("iTessalin");

ArbreModules::ArbreModules(const les_modules_radio *table)
{
    if (table) {
        for (const gestion_radio &gr : table->modules) {
            if (gr.present == 0 || gr.numero[0] == '\0')
                continue;
            _module m;
            m.module = gr.numeroTexte();
            m.parent = gr.parentTexte();
            m.rank = gr.rank;
            lesModules.append(m);
        }
    }

    // Who holds each address and who names it as parent, in list order: the
    // tree is rebuilt at every frame, and pairwise scans of a full table would
    // cost ten thousand comparisons each time.
    QHash<QString, int> nbParAdresse;
    QHash<QString, QVector<int>> enfantsDe;
    for (int j = 0; j < lesModules.size(); ++j) {
        ++nbParAdresse[lesModules.at(j).module];
        enfantsDe[lesModules.at(j).parent].append(j);
    }

    // A pair naming each other as parent counts only as parents of each other.
    for (_module &m : lesModules) {
        if (m.parent != m.module)
            m.nb_parents = nbParAdresse.value(m.parent);
        const auto enfants = enfantsDe.constFind(m.module);
        if (enfants == enfantsDe.constEnd())
            continue;
        for (const int j : *enfants) {
            const _module &n = lesModules.at(j);
            if (n.module != m.module && n.module != m.parent)
                ++m.nb_enfants;
        }
    }

    _module racine;
    racine.module = NOM_RACINE;
    lesNiveaux.append(QList<_module>{racine});
    for (int i = 0;; ++i) {
        if (i + 1 >= NB_NIVEAUX_MAX) {
            borne = true;
            break;
        }
        // Under the root hang the modules whose parent is not in the table;
        // deeper, the modules whose parent is an entry of the level above. A
        // record is taken once per level even when its parent's address occurs
        // twice above: the copies would change no depth and no bound, yet
        // would multiply at every turn of a loop between duplicated addresses.
        QList<_module> niveau;
        QVector<bool> pris(lesModules.size(), false);
        const auto prendre = [&](int j) {
            if (!pris.at(j)) {
                pris[j] = true;
                niveau.append(lesModules.at(j));
            }
        };
        if (i == 0) {
            for (int j = 0; j < lesModules.size(); ++j) {
                if (lesModules.at(j).nb_parents == 0)
                    prendre(j);
            }
        } else {
            for (const _module &e : qAsConst(lesNiveaux.at(i))) {
                const auto enfants = enfantsDe.constFind(e.module);
                if (e.module.isEmpty() || enfants == enfantsDe.constEnd())
                    continue;
                for (const int j : *enfants) {
                    if (lesModules.at(j).nb_parents > 0)
                        prendre(j);
                }
            }
        }
        if (niveau.isEmpty())
            break;
        lesNiveaux.append(niveau);
    }
}

const ArbreModules::_module *ArbreModules::premier(const QString &module) const
{
    for (const _module &m : lesModules) {
        if (m.module == module)
            return &m;
    }
    return nullptr;
}

double ArbreModules::rang(const QString &module) const
{
    const _module *m = premier(module);
    return m ? m->rank : -1.0;
}

int ArbreModules::nbEnfants(const QString &module) const
{
    const _module *m = premier(module);
    return m ? m->nb_enfants : -1;
}

int ArbreModules::profondeur(const QString &module) const
{
    for (int k = 1; k < lesNiveaux.size(); ++k) {
        for (const _module &m : lesNiveaux.at(k)) {
            if (m.module == module)
                return k;
        }
    }
    return -1;
}

double ArbreModules::pasDeRang(const QString &module, const QString &parent) const
{
    const double r = rang(module);
    const int p = profondeur(module);
    if (p == 1 || p == -1)
        return r - RANG_RACINE;
    const _module *leParent = premier(parent);
    return leParent ? r - leParent->rank : r;
}
