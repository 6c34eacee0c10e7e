#include "udp/qserveurudp.h"

#include "commun/environnement.h"
#include "commun/horloge.h"
#include "radio/fonctions_bases.h"

#include <QHash>

#include <cstdlib>
#include <memory>

namespace {

// Silence limits and hold-offs, in seconds. A limit is passed only when the
// unsigned difference between now and a stored date is strictly greater.
const quint32 DELAI_TUNSLIP6 = 300;
const quint32 DELAI_RESET_BR = 660;
const quint32 DELAI_REPAIR_BR = 360;

// The scripts' exit status is not looked at: a failed action is simply tried
// again at the next due decision.
void executer(const QString &ligneDeCommande)
{
    const int statut = std::system(Environnement::commande(ligneDeCommande).constData());
    Q_UNUSED(statut)
}

quint32 maintenant()
{
    return Horloge::maintenantSecondes();
}

quint32 secondes(const QDateTime &instant)
{
    return static_cast<quint32>(instant.toSecsSinceEpoch());
}

struct LibereMalloc
{
    void operator()(les_modules_radio *table) const { std::free(table); }
};

// Modules that have been silent longer than a limit and were not named by the
// previous action of the same kind, with their silence in seconds.
struct Candidats
{
    QStringList adresses;
    QList<quint32> ages;

    bool estVide() const { return adresses.isEmpty(); }

    QString texte() const
    {
        QString liste;
        for (int i = 0; i < adresses.size(); ++i) {
            if (!liste.isEmpty())
                liste += QLatin1String(", ");
            liste += adresses.at(i) + QStringLiteral(" (%1 s)").arg(ages.at(i));
        }
        return liste;
    }
};

// Walks every slot of the module table, present or not, and looks up the
// module's most recent frame. A module heard within the limit leaves `dejaNommes`
// so that it can be named again the next time it falls silent. Without a
// snapshot of the table there is nothing to scan and no one is named.
Candidats chercherModulesSilencieux(const QHash<QString, quint32> &derniereTrame, quint32 limite,
                                    QStringList &dejaNommes)
{
    Candidats candidats;
    const std::unique_ptr<les_modules_radio, LibereMalloc> table(
        fonctions_bases::getLesModulesRadio());
    if (!table)
        return candidats;

    const quint32 instant = maintenant();
    for (const gestion_radio &slot : table->modules) {
        const QString adresse = slot.numeroTexte();
        const auto trouve = derniereTrame.constFind(adresse);
        if (trouve == derniereTrame.constEnd())
            continue;
        const quint32 age = instant - trouve.value();
        if (age <= limite) {
            dejaNommes.removeAll(adresse);
        } else if (!dejaNommes.contains(adresse)) {
            candidats.adresses.append(adresse);
            candidats.ages.append(age);
        }
    }
    return candidats;
}

} // namespace

void QServeurUdp::restartTunslip6()
{
    ecrireLog(QStringLiteral("restartTunslip6()"), true);
    executer(QStringLiteral("/etc/init.d/tunslip6 stop"));
    Horloge::dormir(2);
    executer(QStringLiteral("/etc/init.d/tunslip6 start"));
    dateDernierRestartTunslip6 = maintenant();
}

void QServeurUdp::verifierSiBesoinRepairBr()
{
    ecrireLog(QStringLiteral("début verifierSiBesoinRepairBr"));

    // Loaded once; an empty list (device database not readable yet) is
    // loaded again at the next run.
    if (typesVoies.isEmpty()) {
        fonctions_bases fb(nullptr);
        fb.ouvre_base();
        typesVoies = fb.retourne_type_voies();
    }

    ecrireLog(QStringLiteral("début verifierSiBesoinRepairBr fonctions_bases::getLesVoiesRadio"));
    const QList<La_config_voies> voiesRadio =
        fonctions_bases::getLesVoiesRadio(QString(), typesVoies);
    ecrireLog(QStringLiteral("début verifierSiBesoinRepairBr Test1"));
    ecrireLog(QStringLiteral("verifierSiBesoinRepairBr : nb voies configurées en RADIO = %1")
                  .arg(voiesRadio.size()));
    ecrireLog(QStringLiteral("début verifierSiBesoinRepairBr"));

    // An appliance without radio channels has no border router to watch.
    if (voiesRadio.isEmpty()) {
        ecrireLog(QStringLiteral("fin verifierSiBesoinRepairBr"));
        return;
    }

    // A clock set back would otherwise make every unsigned difference huge
    // and fire all three actions at once.
    const quint32 instant = maintenant();
    for (quint32 *date : {&dateDernierRestartTunslip6, &dateDernierResetBr, &dateDernierRepairBr}) {
        if (instant < *date)
            *date = instant;
    }

    // The reception thread keeps appending: every decision below is taken on
    // the history as it stood at this one moment.
    bool aucuneTrame = true;
    quint32 dateDerniereTrame = 0;
    QHash<QString, quint32> derniereTrame; // each module's most recent frame
    {
        std::lock_guard<std::mutex> verrou(mutexInfosTrame);
        aucuneTrame = LesInfosTrame.isEmpty();
        if (!aucuneTrame)
            dateDerniereTrame = secondes(LesInfosTrame.constLast().dateheure);
        // Oldest first, so the last date kept for a module is its newest.
        for (const _info_trame &info : qAsConst(LesInfosTrame))
            derniereTrame.insert(info.module, secondes(info.dateheure));
    }

    const quint32 ageDerniereTrame = aucuneTrame ? 0 : maintenant() - dateDerniereTrame;
    if ((aucuneTrame || ageDerniereTrame > DELAI_TUNSLIP6) &&
        maintenant() - dateDernierRestartTunslip6 > DELAI_TUNSLIP6) {
        if (aucuneTrame)
            ecrireLog(QStringLiteral("RESTART TUNSLIP6 : Aucune trame reçu depuis le démarrage du "
                                     "programme"),
                      true);
        else
            ecrireLog(QStringLiteral("RESTART TUNSLIP6 : Dernière trame reçu il y a %1s (>%2s)")
                          .arg(ageDerniereTrame)
                          .arg(DELAI_TUNSLIP6),
                      true);
        ouvrirSiNonOuvert();
        restartTunslip6();
        // The tunnel restart gives the border router time to recover before
        // any script is tried.
        dateDernierResetBr = maintenant();
        dateDernierRepairBr = maintenant();
        return;
    }

    if (maintenant() - dateDernierResetBr > DELAI_RESET_BR) {
        const Candidats candidats =
            chercherModulesSilencieux(derniereTrame, DELAI_RESET_BR, modulesResetBr);
        if (!candidats.estVide()) {
            ecrireLog(QStringLiteral("RESET BR : Modules concernés : %1 (>%2s)")
                          .arg(candidats.texte(), QString::number(DELAI_RESET_BR)),
                      true);
            executer(QStringLiteral("/etc/scripts/reset_br.sh"));
            dateDernierResetBr = maintenant();
            dateDernierRepairBr = maintenant();
            modulesResetBr = candidats.adresses;
            return;
        }
    }

    if (maintenant() - dateDernierRepairBr <= DELAI_REPAIR_BR) {
        ecrireLog(QStringLiteral("fin verifierSiBesoinRepairBr"));
        return;
    }
    const Candidats candidats =
        chercherModulesSilencieux(derniereTrame, DELAI_REPAIR_BR, modulesRepairBr);
    if (candidats.estVide()) {
        ecrireLog(QStringLiteral("fin verifierSiBesoinRepairBr"));
        return;
    }
    ecrireLog(QStringLiteral("REPAIR BR : Modules concernés : %1 (>%2s)")
                  .arg(candidats.texte(), QString::number(DELAI_REPAIR_BR)),
              true);
    executer(QStringLiteral("/etc/scripts/repair_br.sh"));
    dateDernierRepairBr = maintenant();
    modulesRepairBr = candidats.adresses;
}
