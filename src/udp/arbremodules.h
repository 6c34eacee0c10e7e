#ifndef ARBREMODULES_H
#define ARBREMODULES_H

#include "radio/gestion_radio.h"

#include <QLatin1String>
#include <QList>
#include <QString>
#include <QVector>

// The tree of radio modules as the module update rebuilds it at every frame
// from a snapshot of "Zone_HF": level 0 is the appliance itself, level k+1
// the modules whose parent is in level k. From it come a module's depth (its
// hops to the border router) and its rank step.
class ArbreModules
{
public:
    // A loop in the parent links (a module that is its own ancestor) would
    // otherwise grow the tree for ever.
    static constexpr int NB_NIVEAUX_MAX = 20;
    // Stands for the appliance's rank at the root of the tree.
    static constexpr double RANG_RACINE = 13;
    static const QString NOM_RACINE;

    struct _module
    {
        QString module;
        QString parent;
        double rank = 0.0; // as stored from the module's previous frame
        double reserve1 = 0.0;
        int nb_parents = 0; // other modules holding the address named as parent
        int nb_enfants = 0; // other modules naming this one as parent
        double reserve2 = 0.0;
    };

    // `table` may be null (segment absent): the tree is then the root alone.
    // The tree reads its texts in place: the table must outlive it.
    explicit ArbreModules(const les_modules_radio *table);

    // The modules in table order, and the levels, root first, for those who
    // draw the tree; built when asked.
    QList<_module> modules() const;
    QList<QList<_module>> niveaux() const;
    // Whether building stopped at the level bound rather than running out of
    // modules.
    bool borneAtteinte() const { return borne; }

    // Stored rank and child count of the first module with this address;
    // -1 and -1 for a module absent from the table.
    double rang(const QString &module) const;
    int nbEnfants(const QString &module) const;
    // Index of the first level below the root holding the module, or -1.
    int profondeur(const QString &module) const;
    // The rank step of a module heard with `parent`: its rank less the root's
    // for a module hanging under the appliance (or nowhere), less its
    // parent's stored rank deeper down (nothing when the parent is unknown).
    double pasDeRang(const QString &module, const QString &parent) const;

    // All the module update needs, found in one look: depth, rank step and
    // child count, as the functions above give them.
    struct Lieu
    {
        int profondeur = -1;
        double pasDeRang = 0.0;
        int nbEnfants = -1;
    };
    Lieu lieu(const QString &module, const QString &parent) const;

private:
    // A module of the table, its texts read in place. Each distinct text has
    // a number: the links are found between numbers, not between texts.
    struct Noeud
    {
        QLatin1String module;
        QLatin1String parent;
        int numeroModule = 0;
        int numeroParent = 0;
        double rank = 0.0;
        int nb_parents = 0;
        int nb_enfants = 0;
    };

    int premier(const QString &module) const;
    _module enregistrement(int i) const;

    // Rebuilt at every frame: indexes only, no text or record made per module.
    QVector<Noeud> noeuds;
    QVector<QVector<int>> lesNiveaux; // below the root, indexes into noeuds
    bool borne = false;
};

#endif // ARBREMODULES_H
