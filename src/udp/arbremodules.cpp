#include "udp/arbremodules.h"

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

    // A pair naming each other as parent counts only as parents of each other.
    for (_module &m : lesModules) {
        for (const _module &n : qAsConst(lesModules)) {
            if (m.module != n.module && m.parent == n.module)
                ++m.nb_parents;
            else if (m.module != n.module && n.parent == m.module)
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
        for (const _module &e : qAsConst(lesNiveaux.at(i))) {
            for (int j = 0; j < lesModules.size(); ++j) {
                const _module &n = lesModules.at(j);
                const bool sousE =
                    i == 0 ? n.nb_parents == 0
                           : n.nb_parents > 0 && !e.module.isEmpty() && n.parent == e.module;
                if (sousE && !pris.at(j)) {
                    pris[j] = true;
                    niveau.append(n);
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
