#include "udp/arbremodules.h"

#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory_resource>
#include <string_view>
#include <unordered_map>

const QString ArbreModules::NOM_RACINE = QStringLiteral("iTessalin");

namespace {
QLatin1String texte(const char *champ, int largeur)
{
    return QLatin1String(champ, static_cast<int>(qstrnlen(champ, static_cast<uint>(largeur))));
}

// Room for a full table without touching the heap: 100 addresses and 100 parents.
using Entiers = QVarLengthArray<int, 2 * les_modules_radio::NB_MODULES + 1>;

Entiers zeros(int taille)
{
    Entiers t(taille);
    std::fill(t.begin(), t.end(), 0);
    return t;
}
} // namespace

ArbreModules::ArbreModules(const les_modules_radio *table)
{
    // Each distinct address or parent text gets a number, in order of first
    // sight; the index lives on the stack, as the tree is rebuilt at every frame.
    std::array<std::byte, 32768> memoire;
    std::pmr::monotonic_buffer_resource ressource(memoire.data(), memoire.size());
    std::pmr::unordered_map<std::string_view, int> numeros(&ressource);
    const auto numero = [&numeros](QLatin1String t) {
        return numeros
            .try_emplace(std::string_view(t.data(), static_cast<size_t>(t.size())),
                         static_cast<int>(numeros.size()))
            .first->second;
    };
    if (table) {
        noeuds.reserve(les_modules_radio::NB_MODULES);
        numeros.reserve(2 * les_modules_radio::NB_MODULES);
        for (const gestion_radio &gr : table->modules) {
            if (gr.present == 0 || gr.numero[0] == '\0')
                continue;
            Noeud n;
            n.module = texte(gr.numero, gestion_radio::LARGEUR_NUMERO);
            n.parent = texte(gr.parent, gestion_radio::LARGEUR_PARENT);
            n.numeroModule = numero(n.module);
            n.numeroParent = numero(n.parent);
            n.rank = gr.rank;
            noeuds.append(n);
        }
    }
    const int nbNumeros = static_cast<int>(numeros.size());

    // How many modules hold each address, and who names each address as
    // parent: the modules grouped by parent, in table order within a group.
    Entiers parAdresse = zeros(nbNumeros), debutEnfants = zeros(nbNumeros + 1),
            enfants(noeuds.size());
    for (const Noeud &m : qAsConst(noeuds)) {
        ++parAdresse[m.numeroModule];
        ++debutEnfants[m.numeroParent + 1];
    }
    for (int k = 0; k < nbNumeros; ++k)
        debutEnfants[k + 1] += debutEnfants[k];
    Entiers place(debutEnfants.cbegin(), debutEnfants.cend() - 1);
    for (int j = 0; j < noeuds.size(); ++j)
        enfants[place[noeuds.at(j).numeroParent]++] = j;
    const auto pourChaqueEnfant = [&](int adresse, auto faire) {
        for (int k = debutEnfants[adresse]; k < debutEnfants[adresse + 1]; ++k)
            faire(enfants[k]);
    };

    // A pair naming each other as parent counts only as parents of each other.
    for (Noeud &m : noeuds) {
        if (m.numeroParent != m.numeroModule)
            m.nb_parents = parAdresse[m.numeroParent];
        pourChaqueEnfant(m.numeroModule, [&](int j) {
            const int e = noeuds.at(j).numeroModule;
            if (e != m.numeroModule && e != m.numeroParent)
                ++m.nb_enfants;
        });
    }

    // Under the root hang the modules whose parent is not in the table;
    // deeper, the modules whose parent is an entry of the level above. A
    // record is taken once per level even when its parent's address occurs
    // twice above: the copies would change no depth and no bound, yet would
    // multiply at every turn of a loop between duplicated addresses.
    Entiers pris = zeros(noeuds.size()); // the last level that took each record
    for (int niveau = 1;; ++niveau) {
        if (niveau >= NB_NIVEAUX_MAX) {
            borne = true;
            break;
        }
        QVector<int> suivant;
        const auto prendre = [&](int j) {
            if (pris[j] != niveau) {
                pris[j] = niveau;
                suivant.append(j);
            }
        };
        if (niveau == 1) {
            for (int j = 0; j < noeuds.size(); ++j) {
                if (noeuds.at(j).nb_parents == 0)
                    prendre(j);
            }
        } else {
            for (const int e : lesNiveaux.constLast()) {
                pourChaqueEnfant(noeuds.at(e).numeroModule, [&](int j) {
                    if (noeuds.at(j).nb_parents > 0)
                        prendre(j);
                });
            }
        }
        if (suivant.isEmpty())
            break;
        lesNiveaux.append(suivant);
    }
}

ArbreModules::_module ArbreModules::enregistrement(int i) const
{
    const Noeud &n = noeuds.at(i);
    _module m;
    m.module = n.module;
    m.parent = n.parent;
    m.rank = n.rank;
    m.nb_parents = n.nb_parents;
    m.nb_enfants = n.nb_enfants;
    return m;
}

QList<ArbreModules::_module> ArbreModules::modules() const
{
    QList<_module> liste;
    for (int i = 0; i < noeuds.size(); ++i)
        liste.append(enregistrement(i));
    return liste;
}

QList<QList<ArbreModules::_module>> ArbreModules::niveaux() const
{
    _module racine;
    racine.module = NOM_RACINE;
    QList<QList<_module>> liste{QList<_module>{racine}};
    for (const QVector<int> &niveau : lesNiveaux) {
        QList<_module> modulesDuNiveau;
        for (const int i : niveau)
            modulesDuNiveau.append(enregistrement(i));
        liste.append(modulesDuNiveau);
    }
    return liste;
}

int ArbreModules::premier(const QString &module) const
{
    for (int i = 0; i < noeuds.size(); ++i) {
        if (noeuds.at(i).module == module)
            return i;
    }
    return -1;
}

double ArbreModules::rang(const QString &module) const
{
    const int i = premier(module);
    return i >= 0 ? noeuds.at(i).rank : -1.0;
}

int ArbreModules::nbEnfants(const QString &module) const
{
    const int i = premier(module);
    return i >= 0 ? noeuds.at(i).nb_enfants : -1;
}

int ArbreModules::profondeur(const QString &module) const
{
    for (int k = 0; k < lesNiveaux.size(); ++k) {
        for (const int i : lesNiveaux.at(k)) {
            if (noeuds.at(i).module == module)
                return k + 1;
        }
    }
    return -1;
}

double ArbreModules::pasDeRang(const QString &module, const QString &parent) const
{
    return lieu(module, parent).pasDeRang;
}

ArbreModules::Lieu ArbreModules::lieu(const QString &module, const QString &parent) const
{
    Lieu l;
    const int i = premier(module);
    const double r = i >= 0 ? noeuds.at(i).rank : -1.0;
    l.nbEnfants = i >= 0 ? noeuds.at(i).nb_enfants : -1;
    l.profondeur = profondeur(module);
    if (l.profondeur == 1 || l.profondeur == -1) {
        l.pasDeRang = r - RANG_RACINE;
    } else {
        const int leParent = premier(parent);
        l.pasDeRang = leParent >= 0 ? r - noeuds.at(leParent).rank : r;
    }
    return l;
}
