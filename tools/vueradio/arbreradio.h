#ifndef ARBRERADIO_H
#define ARBRERADIO_H

#include "radio/gestion_radio.h"

#include <QList>
#include <QString>

// The radio tree as the service sees it (the levels of ArbreModules, built
// from the module table exactly as the module update builds them), drawn for
// people: indented text or Graphviz DOT. Each module shows its hops, its rank
// step and its reception rate from its record in "Zone_HF".
class ArbreRadio
{
public:
    // A module is silent once its last frame is older than this: past it the
    // border-router supervision names the module in a repair (and past 660 s
    // in a reset).
    static constexpr qint64 SEUIL_SILENCE = 360;
    static bool estSilencieux(quint32 dateTrame, quint32 maintenant);

    // `table` may be null: the tree is then the appliance alone.
    ArbreRadio(const les_modules_radio *table, quint32 maintenant);

    QString texte() const;
    QString dot() const;

private:
    struct Noeud
    {
        QString module;
        QString parent;
        int pere = -1; // node it hangs under; -1 when the appliance never reaches it
        QList<int> enfants;
        gestion_radio record{};
    };

    QString resume(const Noeud &n) const;
    bool silencieux(const Noeud &n) const;
    void branche(QString &t, int i, const QString &prefixe, bool dernier) const;
    QString noeudDot(const Noeud &n) const;

    QList<Noeud> noeuds; // node 0 is the appliance
    QList<int> nonAtteints;
    quint32 maintenant = 0;
    bool borne = false;
};

#endif // ARBRERADIO_H
