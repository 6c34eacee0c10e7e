#include "arbreradio.h"

#include "miseenforme.h"
#include "udp/arbremodules.h"

#include <QHash>

using namespace MiseEnForme;

namespace {
// Module addresses come from the table as Latin-1 text; shown with their
// control bytes made visible.
QString montre(const QString &adresse)
{
    return visible(adresse.toLatin1());
}

QString chaineDot(const QString &texte)
{
    QString t = texte;
    t.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    t.replace(QLatin1Char('"'), QLatin1String("\\\""));
    // Line breaks of a label are DOT's own escape.
    t.replace(QLatin1Char('\n'), QLatin1String("\\n"));
    return QLatin1Char('"') + t + QLatin1Char('"');
}
} // namespace

bool ArbreRadio::estSilencieux(quint32 dateTrame, quint32 maintenant)
{
    return dateConnue(dateTrame) &&
           static_cast<qint64>(maintenant) - static_cast<qint64>(dateTrame) > SEUIL_SILENCE;
}

ArbreRadio::ArbreRadio(const les_modules_radio *table, quint32 maintenant)
    : maintenant(maintenant)
{
    const ArbreModules arbre(table);
    borne = arbre.borneAtteinte();

    // A module's record is its first live slot, as the service looks it up.
    QHash<QString, int> premierSlot;
    if (table) {
        for (int i = les_modules_radio::NB_MODULES - 1; i >= 0; --i) {
            const gestion_radio &gr = table->modules[i];
            if (gr.present != 0 && gr.numero[0] != '\0')
                premierSlot.insert(gr.numeroTexte(), i);
        }
    }

    Noeud racine;
    racine.module = ArbreModules::NOM_RACINE;
    noeuds.append(racine);
    QHash<QString, int> places;
    const auto ajouter = [&](const ArbreModules::_module &m, int pere) {
        Noeud n;
        n.module = m.module;
        n.parent = m.parent;
        n.pere = pere;
        if (table && premierSlot.contains(m.module))
            n.record = table->modules[premierSlot.value(m.module)];
        places.insert(m.module, noeuds.size());
        if (pere >= 0)
            noeuds[pere].enfants.append(noeuds.size());
        noeuds.append(n);
    };
    // Level k+1 holds modules whose parent is in level k, so the parent has
    // its node already; a module met again deeper keeps its first place.
    const QList<QList<ArbreModules::_module>> &niveaux = arbre.niveaux();
    for (int k = 1; k < niveaux.size(); ++k) {
        for (const ArbreModules::_module &m : niveaux.at(k)) {
            if (!places.contains(m.module))
                ajouter(m, k == 1 ? 0 : places.value(m.parent, 0));
        }
    }
    for (const ArbreModules::_module &m : arbre.modules()) {
        if (!places.contains(m.module)) {
            nonAtteints.append(noeuds.size());
            ajouter(m, -1);
        }
    }
}

bool ArbreRadio::silencieux(const Noeud &n) const
{
    return estSilencieux(n.record.dateheure_mesure, maintenant);
}

QString ArbreRadio::resume(const Noeud &n) const
{
    const gestion_radio &gr = n.record;
    QString t = QStringLiteral("hops %1, rank step %2, reception %3")
                    .arg(QString::number(gr.nb_sauts), nombre(gr.current_rank),
                         gr.taux_reception < 0.0 ? QStringLiteral("-")
                                                 : taux(gr.taux_reception) + QStringLiteral(" %"));
    if (!dateConnue(gr.dateheure_mesure))
        t += QStringLiteral(", no frame time");
    else if (silencieux(n))
        t += QStringLiteral(", SILENT (last frame %1 s ago)")
                 .arg(age(gr.dateheure_mesure, maintenant));
    else
        t += QStringLiteral(", last frame %1 s ago").arg(age(gr.dateheure_mesure, maintenant));
    return t;
}

void ArbreRadio::branche(QString &t, int i, const QString &prefixe, bool dernier) const
{
    const Noeud &n = noeuds.at(i);
    t += prefixe + (dernier ? QStringLiteral("`-- ") : QStringLiteral("+-- ")) + montre(n.module) +
         QStringLiteral("  ") + resume(n) + QLatin1Char('\n');
    const QString suite = prefixe + (dernier ? QStringLiteral("    ") : QStringLiteral("|   "));
    for (int k = 0; k < n.enfants.size(); ++k)
        branche(t, n.enfants.at(k), suite, k == n.enfants.size() - 1);
}

QString ArbreRadio::texte() const
{
    // Node 0 is the appliance, which is no module.
    const int nbModules = noeuds.size() - 1;
    int nbSilencieux = 0;
    for (int i = 1; i < noeuds.size(); ++i)
        nbSilencieux += silencieux(noeuds.at(i)) ? 1 : 0;
    QString t = QStringLiteral("Radio tree: %1 live modules, %2 silent (last frame more than %3 s "
                               "ago)\n")
                    .arg(nbModules - nbSilencieux)
                    .arg(nbSilencieux)
                    .arg(SEUIL_SILENCE);
    t += montre(noeuds.at(0).module) + QStringLiteral("  (the appliance)\n");
    const QList<int> &premiers = noeuds.at(0).enfants;
    for (int k = 0; k < premiers.size(); ++k)
        branche(t, premiers.at(k), QString(), k == premiers.size() - 1);
    if (!nonAtteints.isEmpty()) {
        t += QStringLiteral("Not reached from the appliance (a loop in the parent links, or "
                            "deeper than %1 levels):\n")
                 .arg(ArbreModules::NB_NIVEAUX_MAX);
        for (const int i : nonAtteints) {
            const Noeud &n = noeuds.at(i);
            t += QStringLiteral("  %1 (parent %2)  %3\n")
                     .arg(montre(n.module), montre(n.parent), resume(n));
        }
    }
    if (borne)
        t += QStringLiteral("(the service stops building the tree at %1 levels)\n")
                 .arg(ArbreModules::NB_NIVEAUX_MAX);
    return t;
}

QString ArbreRadio::noeudDot(const Noeud &n) const
{
    const gestion_radio &gr = n.record;
    QString etiquette =
        montre(n.module) + QStringLiteral("\nhops %1, step %2\nreception %3")
                               .arg(QString::number(gr.nb_sauts), nombre(gr.current_rank),
                                    gr.taux_reception < 0.0
                                        ? QStringLiteral("-")
                                        : taux(gr.taux_reception) + QStringLiteral(" %"));
    QString attributs;
    if (silencieux(n)) {
        etiquette += QStringLiteral("\nsilent %1 s").arg(age(gr.dateheure_mesure, maintenant));
        attributs = QStringLiteral(", style=\"rounded,filled,dashed\", color=\"#b03a2e\", "
                                   "fontcolor=\"#b03a2e\", fillcolor=\"#fbe9e7\"");
    }
    if (n.pere < 0)
        attributs += QStringLiteral(", fillcolor=\"#eeeeee\"");
    return QStringLiteral("    %1 [label=%2%3];\n")
        .arg(chaineDot(montre(n.module)), chaineDot(etiquette), attributs);
}

QString ArbreRadio::dot() const
{
    QString t = QStringLiteral("digraph arbre_radio {\n");
    t += QStringLiteral("    graph [label=%1, labelloc=t, fontname=\"Helvetica\", fontsize=12];\n")
             .arg(chaineDot(QStringLiteral("Radio tree at %1 - dashed red: silent (last frame "
                                           "more than %2 s ago)")
                                .arg(date(maintenant))
                                .arg(SEUIL_SILENCE)));
    t += QStringLiteral("    node [shape=box, style=\"rounded,filled\", fillcolor=\"#e8f0fa\", "
                        "color=\"#3d6a99\", fontname=\"Helvetica\", fontsize=10];\n");
    // Frames travel up to the appliance: the arrows point at the parent.
    t += QStringLiteral("    edge [dir=back, color=\"#3d6a99\"];\n");
    t += QStringLiteral("    %1 [label=%2, shape=box3d, fillcolor=\"#d5dbe1\"];\n")
             .arg(chaineDot(montre(noeuds.at(0).module)),
                  chaineDot(montre(noeuds.at(0).module) + QStringLiteral("\n(appliance)")));
    for (int i = 1; i < noeuds.size(); ++i) {
        if (noeuds.at(i).pere >= 0)
            t += noeudDot(noeuds.at(i));
    }
    for (int i = 1; i < noeuds.size(); ++i) {
        const Noeud &n = noeuds.at(i);
        if (n.pere >= 0)
            t += QStringLiteral("    %1 -> %2;\n")
                     .arg(chaineDot(montre(noeuds.at(n.pere).module)), chaineDot(montre(n.module)));
    }
    if (!nonAtteints.isEmpty()) {
        t +=
            QStringLiteral("    subgraph cluster_non_atteints {\n        label=%1; style=dashed;\n")
                .arg(chaineDot(QStringLiteral("not reached from the appliance")));
        for (const int i : nonAtteints)
            t += QStringLiteral("    ") + noeudDot(noeuds.at(i));
        for (const int i : nonAtteints) {
            const Noeud &n = noeuds.at(i);
            t += QStringLiteral("        %1 -> %2 [style=dotted];\n")
                     .arg(chaineDot(montre(n.parent)), chaineDot(montre(n.module)));
        }
        t += QStringLiteral("    }\n");
    }
    t += QStringLiteral("}\n");
    return t;
}
