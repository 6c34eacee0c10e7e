#include "udp/qserveurudp.h"

#include "commun/horloge.h"
#include "radio/fonctions_bases.h"
#include "udp/sqltexte.h"

#include <QSqlError>
#include <QSqlQuery>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {
// A module sends a frame every 45 s; up to 63 s the frame counts as on time.
const double ECART_NOMINAL = 45.0;
const qint64 ECART_MAXIMUM_A_L_HEURE = 63;
// Each 13 units of rank step weigh 0.2 in the usage rate.
const double UNITE_RANK = 13.0;
const double POIDS_RANK = 0.2;

// Frame times come from the clock of the moment: a clock set late would give
// gaps of years, whose count must not overflow.
int bornerEntier(double valeur)
{
    return static_cast<int>(qBound(static_cast<double>(std::numeric_limits<int>::min()), valeur,
                                   static_cast<double>(std::numeric_limits<int>::max())));
}
} // namespace

void QServeurUdp::calculerTauxInfosTrames()
{
    ecrireLog(QStringLiteral("début calculerTauxInfosTrames"));
    les_modules_radio *modules = fonctions_bases::getLesModulesRadio();
    // The reception thread keeps appending: the walk runs on a copy.
    const QList<_info_trame> infos = copieInfosTrame();
    if (modules) {
        for (const gestion_radio &gr : modules->modules) {
            if (gr.present == 0)
                continue;
            const QString numero = gr.numeroTexte();
            int ok = 0;
            int err = 0;
            double erru = 0.0;
            double rankLogue = 0.0;
            qint64 datePrecedente = Horloge::maintenantSecondes();
            QString parentPrecedent;
            int trouves = 0;
            // Newest first: the newest frame only starts the chain, the time
            // since it is not counted.
            for (auto it = infos.crbegin(); it != infos.crend(); ++it) {
                const _info_trame &info = *it;
                if (info.module != numero)
                    continue;
                const qint64 date = info.dateheure.toSecsSinceEpoch();
                if (trouves > 0) {
                    const qint64 ecart = datePrecedente - date;
                    if (ecart <= ECART_MAXIMUM_A_L_HEURE)
                        ok += 1;
                    else
                        err = bornerEntier(
                            err + std::round(2.0 * (static_cast<double>(ecart) - ECART_NOMINAL) /
                                             ECART_NOMINAL));
                    if (info.parent != parentPrecedent)
                        erru += 1.0;
                    if (info.current_rank > 0)
                        erru += (info.current_rank / UNITE_RANK) * POIDS_RANK;
                }
                trouves += 1;
                datePrecedente = date;
                parentPrecedent = info.parent;
                rankLogue = info.current_rank;
            }

            const double taux_reception =
                ok + err > 0 ? 100.0 * ok / static_cast<double>(ok + err) : -1.0;
            const double total = ok + erru + err;
            const double taux_utilisation = total > 0 ? 100.0 - 100.0 * ok / total : -1.0;

            ecrireLog(QStringLiteral("%1 current_rank=%2 err=%3 erru=%4 ok=%5 taux_utilisation=%6")
                          .arg(numero, texteDouble(rankLogue), QString::number(err),
                               texteDouble(erru), QString::number(ok),
                               texteDouble(taux_utilisation)));
            fonctions_bases::setModuleTaux(numero, taux_reception, taux_utilisation);
        }
        std::free(modules);
    }
    ecrireLog(QStringLiteral("fin calculerTauxInfosTrames"));
}

void QServeurUdp::enregistrerTaux()
{
    static const QString NOM = QStringLiteral("enregistrerTaux");

    ecrireLog(QStringLiteral("début enregistrerTaux"));
    const quint32 maintenant = Horloge::maintenantSecondes();
    QSqlDatabase base = connexionTache(QStringLiteral("hf_enregistrerTaux"), NOM);
    base.open();
    ecrireLog(QStringLiteral("enregistrerTaux après this->db.open()"));

    les_modules_radio *modules = fonctions_bases::getLesModulesRadio();
    if (modules) {
        for (const gestion_radio &gr : modules->modules) {
            if (gr.present == 0)
                continue;
            const QString numero = gr.numeroTexte();
            ecrireLog(QStringLiteral("enregistrerTaux module %1 query(db)").arg(numero));
            QSqlQuery query(base);
            ecrireLog(QStringLiteral("enregistrerTaux module %1 query.exec").arg(numero));
            query.exec(QStringLiteral("insert into mesures_taux (module, dateheure_mesure_taux, "
                                      "taux_reception, taux_utilisation) values ('%1', '%2', '%3', "
                                      "'%4')")
                           .arg(texteSql(numero), QString::number(maintenant),
                                texteDouble(gr.taux_reception), texteDouble(gr.taux_utilisation)));
            ecrireLog(QStringLiteral("enregistrerTaux module %1 après query.exec").arg(numero));
            const QSqlError erreur = query.lastError();
            if (numeroErreur(erreur) >= 0)
                ecrireLog(QStringLiteral("enregistrerTaux Erreur ajout mesures_taux : %1 : %2")
                              .arg(QString::number(numeroErreur(erreur)), erreur.text()));
        }
        std::free(modules);
    }

    ecrireLog(QStringLiteral("enregistrerTaux db.close()"));
    base.close();
    ecrireLog(QStringLiteral("enregistrerTaux après db.close()"));
    ecrireLog(QStringLiteral("fin enregistrerTaux"));
}

void QServeurUdp::supprimerAnciennesInfosTrames()
{
    std::lock_guard<std::mutex> verrou(mutexInfosTrame);
    ecrireLog(QStringLiteral("début supprimerAnciennesInfosTrames (taille=%1)")
                  .arg(LesInfosTrame.size()));
    // The whole list is visited, newest first: the list is kept in arrival
    // order, but the frames' own times need not be.
    for (int j = LesInfosTrame.size() - 1; j >= 0; --j) {
        const qint64 limite =
            static_cast<qint64>(Horloge::maintenantSecondes()) - dureeConservationInfosTrames;
        if (LesInfosTrame.at(j).dateheure.toSecsSinceEpoch() < limite)
            LesInfosTrame.removeAt(j);
    }
    ecrireLog(
        QStringLiteral("fin supprimerAnciennesInfosTrames (taille=%1)").arg(LesInfosTrame.size()));
}
