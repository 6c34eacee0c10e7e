#include "udp/qserveurudp.h"

#include "commun/horloge.h"
#include "udp/sqltexte.h"

#include <QSqlError>
#include <QSqlQuery>

// Rows strictly older than the retention period are deleted; a row exactly as
// old as the period stays until the next run. A failed delete leaves its rows
// to the next run.

namespace {

QString limite(int dureeConservation)
{
    return QString::number(static_cast<qint64>(Horloge::maintenantSecondes()) - dureeConservation);
}

// One history purge on the task's own connection, traced step by step under
// the task's name.
void purgerHistorique(QServeurUdp &serveur, QSqlDatabase base, const QString &tache,
                      const QString &requete, const QString &table)
{
    serveur.ecrireLog(tache + QStringLiteral(" après this->db.open()"));
    base.open();
    {
        serveur.ecrireLog(tache + QStringLiteral(" query(db)"));
        QSqlQuery query(base);
        serveur.ecrireLog(tache + QStringLiteral(" query.exec"));
        query.exec(requete);
        serveur.ecrireLog(tache + QStringLiteral(" après query.exec"));
        const QSqlError erreur = query.lastError();
        if (numeroErreur(erreur) >= 0)
            serveur.ecrireLog(
                QStringLiteral("Erreur suppression %1 : %2 : %3")
                    .arg(table, QString::number(numeroErreur(erreur)), erreur.text()));
    }
    serveur.ecrireLog(tache + QStringLiteral(" db.close()"));
    base.close();
    serveur.ecrireLog(tache + QStringLiteral(" après db.close()"));
}

} // namespace

void QServeurUdp::supprimerAnciensModules()
{
    ecrireLog(QStringLiteral("début supprimerAnciensModules"));
    if (dureeConservationModules > 0) {
        // "hf" is also the connection of the reception thread's module update.
        std::lock_guard<std::mutex> verrou(mutexDb);
        db.open();
        {
            QSqlQuery query(db);
            query.exec(QStringLiteral("delete from modules where date_dernier_acces<%1")
                           .arg(limite(dureeConservationModules)));
        }
        db.close();
    }
    ecrireLog(QStringLiteral("fin supprimerAnciensModules"));
}

void QServeurUdp::supprimerAnciennesMesures()
{
    const QString tache = QStringLiteral("supprimerAnciennesMesures");
    ecrireLog(QStringLiteral("début ") + tache);
    if (enregistrerMesuresHf) {
        const QSqlDatabase base =
            connexionTache(QStringLiteral("hf_supprimerAnciennesMesures"), tache);
        purgerHistorique(*this, base, tache,
                         QStringLiteral("delete from mesures_hf where dateheure_mesure_hf<%1")
                             .arg(limite(dureeConservationMesures)),
                         QStringLiteral("mesures_hf"));
    }
    ecrireLog(QStringLiteral("fin ") + tache);
}

void QServeurUdp::supprimerAnciensTaux()
{
    // The rate history shares the readings' retention period and is purged
    // whether or not readings are recorded.
    const QString tache = QStringLiteral("supprimerAnciensTaux");
    ecrireLog(QStringLiteral("début ") + tache);
    const QSqlDatabase base = connexionTache(QStringLiteral("hf_supprimerAnciensTaux"), tache);
    purgerHistorique(*this, base, tache,
                     QStringLiteral("delete from mesures_taux where dateheure_mesure_taux<%1")
                         .arg(limite(dureeConservationMesures)),
                     QStringLiteral("mesures_taux"));
    ecrireLog(QStringLiteral("fin ") + tache);
}
