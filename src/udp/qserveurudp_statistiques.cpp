#include "udp/qserveurudp.h"

#include "commun/horloge.h"
#include "radio/fonctions_bases.h"
#include "udp/sqltexte.h"

#include <QHash>
#include <QSqlError>
#include <QSqlQuery>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#ifdef __GLIBC__
#include <malloc.h>
#endif

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

// The counts of one module's chain of frames, newest first.
struct Chaine
{
    int ok = 0;
    int err = 0;
    double erru = 0.0;
    double rankLogue = 0.0;
    qint64 datePrecedente = 0;
    QString parentPrecedent;
    int trouves = 0;

    // The newest frame only starts the chain: the time since it is not counted.
    void ajouter(const QServeurUdp::_info_trame &info)
    {
        const qint64 date = info.dateheure.toSecsSinceEpoch();
        if (trouves > 0) {
            const qint64 ecart = datePrecedente - date;
            if (ecart <= ECART_MAXIMUM_A_L_HEURE)
                ok += 1;
            else
                err = bornerEntier(
                    err +
                    std::round(2.0 * (static_cast<double>(ecart) - ECART_NOMINAL) / ECART_NOMINAL));
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
};
} // namespace

void QServeurUdp::calculerTauxInfosTrames()
{
    ecrireLog(QStringLiteral("début calculerTauxInfosTrames"));
    les_modules_radio *modules = fonctions_bases::getLesModulesRadio();
    if (modules) {
        // Each module's chain depends only on its own frames: one walk of
        // the history, newest first, feeds every present module's chain,
        // instead of one walk per module.
        QHash<QString, Chaine> chaines;
        for (const gestion_radio &gr : modules->modules) {
            if (gr.present != 0)
                chaines.insert(gr.numeroTexte(), Chaine());
        }
        {
            // Short enough to hold the reception thread's appends meanwhile.
            std::lock_guard<std::mutex> verrou(mutexInfosTrame);
            for (auto it = LesInfosTrame.crbegin(); it != LesInfosTrame.crend(); ++it) {
                const auto chaine = chaines.find(it->module);
                if (chaine != chaines.end())
                    chaine->ajouter(*it);
            }
        }

        for (const gestion_radio &gr : modules->modules) {
            if (gr.present == 0)
                continue;
            const QString numero = gr.numeroTexte();
            const Chaine &c = *chaines.constFind(numero);
            const double taux_reception =
                c.ok + c.err > 0 ? 100.0 * c.ok / static_cast<double>(c.ok + c.err) : -1.0;
            const double total = c.ok + c.erru + c.err;
            const double taux_utilisation = total > 0 ? 100.0 - 100.0 * c.ok / total : -1.0;

            ecrireLog(QStringLiteral("%1 current_rank=%2 err=%3 erru=%4 ok=%5 taux_utilisation=%6")
                          .arg(numero, texteDouble(c.rankLogue), QString::number(c.err),
                               texteDouble(c.erru), QString::number(c.ok),
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
    bool retirees = false;
    {
        std::lock_guard<std::mutex> verrou(mutexInfosTrame);
        ecrireLog(QStringLiteral("début supprimerAnciennesInfosTrames (taille=%1)")
                      .arg(LesInfosTrame.size()));
        // The whole list is visited, newest first: the list is kept in arrival
        // order, but the frames' own times need not be. One pass that keeps
        // the order: removing entries one by one would move the rest of the
        // list each time, and a clock moved on by a day makes an hour of
        // frames old at once.
        const auto ancienne = [this](const _info_trame &info) {
            const qint64 limite =
                static_cast<qint64>(Horloge::maintenantSecondes()) - dureeConservationInfosTrames;
            return info.dateheure.toSecsSinceEpoch() < limite;
        };
        const auto gardees =
            std::remove_if(LesInfosTrame.rbegin(), LesInfosTrame.rend(), ancienne).base();
        retirees = gardees != LesInfosTrame.begin();
        LesInfosTrame.erase(LesInfosTrame.begin(), gardees);
        ecrireLog(QStringLiteral("fin supprimerAnciennesInfosTrames (taille=%1)")
                      .arg(LesInfosTrame.size()));
    }
#ifdef __GLIBC__
    // The freed entries lie between live ones all over the heap: without
    // this, the allocator keeps their pages and the daemon's resident size
    // creeps up over months of frames.
    if (retirees)
        malloc_trim(0);
#endif
}
