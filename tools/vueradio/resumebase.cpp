#include "resumebase.h"

#include "baselecture.h"
#include "miseenforme.h"

#include "commun/environnement.h"
#include "udp/qserveurudp.h"

#include <QMap>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

using namespace MiseEnForme;

namespace {

QString identifiant(const QString &nom)
{
    QString t = nom;
    t.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + t + QLatin1Char('"');
}

QString reel(const QVariant &v)
{
    return v.isNull() ? QString() : QString::number(v.toDouble(), 'f', 1);
}

struct DerniereTrame
{
    QString parent;
    qint64 date = -1;
    QString source;
    qint64 nbFenetre = 0;
};

// The last frame of each module. The reading history is the better witness:
// the module row keeps the date of its first frame when its update fails
// (the update names a column that the service's own table lacks).
void dernieresTrames(Rapport &r, const QSqlDatabase &base, const QStringList &tables,
                     quint32 maintenant)
{
    QMap<QString, DerniereTrame> trames;
    QSqlQuery q(base);
    if (tables.contains(QStringLiteral("modules")) &&
        q.exec(QStringLiteral("select module, parent, date_dernier_acces from modules"))) {
        while (q.next()) {
            DerniereTrame &d = trames[q.value(0).toString()];
            d.parent = q.value(1).toString();
            d.date = q.value(2).isNull() ? -1 : q.value(2).toLongLong();
            d.source = QStringLiteral("modules");
        }
    }
    if (tables.contains(QStringLiteral("mesures_hf")) &&
        q.exec(QStringLiteral("select module, max(dateheure_mesure_hf), sum(dateheure_mesure_hf "
                              "between %1 and %2) from mesures_hf group by module")
                   .arg(static_cast<qint64>(maintenant) - ResumeBase::FENETRE_TAUX)
                   .arg(maintenant))) {
        while (q.next()) {
            DerniereTrame &d = trames[q.value(0).toString()];
            d.nbFenetre = q.value(2).toLongLong();
            if (q.value(1).toLongLong() >= d.date) {
                d.date = q.value(1).toLongLong();
                d.source = QStringLiteral("mesures_hf");
            }
        }
    }
    r.texte += QStringLiteral("Last frame per module\n");
    Tableau t({QStringLiteral("module"), QStringLiteral("parent"), QStringLiteral("last frame"),
               QStringLiteral("age s"), QStringLiteral("frames 24 h"), QStringLiteral("from")},
              QStringLiteral("ggdddg"));
    for (auto i = trames.cbegin(); i != trames.cend(); ++i) {
        const DerniereTrame &d = i.value();
        t.ajouter({visible(i.key().toUtf8()), visible(d.parent.toUtf8()),
                   d.date < 0 ? QString() : date(d.date),
                   d.date < 0 ? QString() : QString::number(maintenant - d.date),
                   QString::number(d.nbFenetre), d.source});
    }
    r.texte += t.estVide() ? QStringLiteral("  (no module)\n") : t.texte();
}

// Rates as the service stores them every hour; -1 (not computed yet) is left
// out of the means.
void taux(Rapport &r, const QSqlDatabase &base, const QStringList &tables, quint32 maintenant)
{
    r.texte += QStringLiteral("Reception rates, last 24 h (mesures_taux)\n");
    if (!tables.contains(QStringLiteral("mesures_taux"))) {
        r.texte += QStringLiteral("  (no table mesures_taux)\n");
        return;
    }
    QSqlQuery q(base);
    const bool ok = q.exec(
        QStringLiteral(
            "select module, count(*), avg(case when taux_reception >= 0 then taux_reception end), "
            "min(case when taux_reception >= 0 then taux_reception end), "
            "(select t2.taux_reception from mesures_taux t2 where t2.module = t.module and "
            "t2.dateheure_mesure_taux between %1 and %2 order by t2.dateheure_mesure_taux desc "
            "limit 1), avg(case when taux_utilisation >= 0 then taux_utilisation end) "
            "from mesures_taux t where dateheure_mesure_taux between %1 and %2 "
            "group by module order by module")
            .arg(static_cast<qint64>(maintenant) - ResumeBase::FENETRE_TAUX)
            .arg(maintenant));
    if (!ok) {
        r.absent(QStringLiteral("mesures_taux cannot be read: %1").arg(q.lastError().text()));
        return;
    }
    Tableau t({QStringLiteral("module"), QStringLiteral("rows"), QStringLiteral("mean recept%"),
               QStringLiteral("min recept%"), QStringLiteral("last recept%"),
               QStringLiteral("mean usage%")},
              QStringLiteral("gddddd"));
    while (q.next()) {
        const QVariant dernier = q.value(4);
        t.ajouter({visible(q.value(0).toString().toUtf8()), q.value(1).toString(), reel(q.value(2)),
                   reel(q.value(3)),
                   dernier.isNull() || dernier.toDouble() < 0 ? QString() : reel(dernier),
                   reel(q.value(5))});
    }
    r.texte += t.estVide() ? QStringLiteral("  (no rate in the last 24 h)\n") : t.texte();
}

} // namespace

namespace ResumeBase {

Rapport rendre(quint32 maintenant)
{
    Rapport r;
    const QString chemin = Environnement::chemin(QServeurUdp::CHEMIN_FICHIER_DB);
    r.texte = QStringLiteral("Radio database %1\n").arg(chemin);
    const BaseEnLecture base(chemin);
    if (!base.estOuverte()) {
        r.absent(base.raison());
        return r;
    }
    QStringList tables;
    {
        QSqlQuery q(base.base());
        if (!q.exec(QStringLiteral("select name from sqlite_master where type = 'table' "
                                   "order by name"))) {
            r.absent(
                QStringLiteral("database %1 cannot be read: %2").arg(chemin, q.lastError().text()));
            return r;
        }
        while (q.next())
            tables.append(q.value(0).toString());
    }
    Tableau lignes({QStringLiteral("table"), QStringLiteral("rows")}, QStringLiteral("gd"));
    for (const QString &table : qAsConst(tables)) {
        QSqlQuery q(base.base());
        const bool ok =
            q.exec(QStringLiteral("select count(*) from %1").arg(identifiant(table))) && q.next();
        lignes.ajouter({table, ok ? q.value(0).toString() : QStringLiteral("?")});
    }
    r.texte += QStringLiteral("Rows per table\n") +
               (lignes.estVide() ? QStringLiteral("  (no table)\n") : lignes.texte());
    dernieresTrames(r, base.base(), tables, maintenant);
    taux(r, base.base(), tables, maintenant);
    return r;
}

} // namespace ResumeBase
