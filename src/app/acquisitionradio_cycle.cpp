#include "app/acquisitionradio.h"

#include "commun/environnement.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "radio/demande_enregistrement.h"
#include "radio/etat.h"
#include "radio/fonctions_bases.h"
#include "radio/gestion_radio.h"
#include "radio/la_config_voies.h"
#include "radio/le_tessalin.h"
#include "radio/zonepartagee.h"

#include <QFile>

#include <cstdlib>

const char *const AcquisitionRadio::CHEMIN_ADRESSE_BR = "/root/br_itessalin.txt";

namespace {
// Reception rates are stored at most once an hour.
constexpr quint32 INTERVALLE_ENREGISTREMENT_TAUX = 3599;
// Only the channels of the base appliance carry an offset in their record.
constexpr int DERNIERE_VOIE_AVEC_OFFSET = 64;
// What the main application's own readers expect: printf's %g.
QString nombre(double v)
{
    return QString::asprintf("%g", v);
}
} // namespace

// One acquisition cycle. The segments belong to the main application: they
// are only attached for the length of the cycle, never created, sized or
// locked, and every step that needs a missing one waits for the next tick.
void AcquisitionRadio::recuperer_mesures()
{
    ecrireLog(QStringLiteral("début recuperer_mesures"), false);

    ZonePartagee zone_enregistrement(Demande_enregistrement::CLE);
    ecrireLog(QStringLiteral("recuperer_mesures : zone_enregistrement.attach()"), false);
    VueZone demande;
    if (zone_enregistrement.attach(QSharedMemory::ReadWrite)) {
        ecrireLog(QStringLiteral("recuperer_mesures : zone_enregistrement.data()"), false);
        demande = zone_enregistrement.vue();
        servirDemandeEnregistrement(demande);
    }
    ecrireLog(QStringLiteral("recuperer_mesures : après zone_enregistrement.attach()"), false);

    serveur.supprimerAnciensTaux();

    const quint32 maintenant = Horloge::maintenantSecondes();
    if (maintenant < dernierEnregistrementTaux) // the clock was set back
        dernierEnregistrementTaux = maintenant;
    if (maintenant - dernierEnregistrementTaux > INTERVALLE_ENREGISTREMENT_TAUX) {
        serveur.enregistrerTaux();
        dernierEnregistrementTaux = maintenant;
    }

    ecrireLog(QStringLiteral("recuperer_mesures : supprimerAnciensModules()"), false);
    serveur.supprimerAnciensModules();
    ecrireLog(QStringLiteral("recuperer_mesures : supprimerAnciennesMesures()"), false);
    serveur.supprimerAnciennesMesures();
    ecrireLog(QStringLiteral("recuperer_mesures : ouvrirSiNonOuvert()"), false);
    serveur.ouvrirSiNonOuvert();
    ecrireLog(QStringLiteral("recuperer_mesures : verifierSiBesoinRepairBr()"), false);
    serveur.verifierSiBesoinRepairBr();
    ecrireLog(QStringLiteral("recuperer_mesures : supprimerAnciennesInfosTrames()"), false);
    serveur.supprimerAnciennesInfosTrames();
    ecrireLog(QStringLiteral("recuperer_mesures : calculerTauxInfosTrames()"), false);
    serveur.calculerTauxInfosTrames();

    ecrireLog(QStringLiteral("recuperer_mesures : zone_voies(\"Config_Voies_iTessalin\")"), false);
    ZonePartagee zone_voies(La_config_voies::CLE);
    ecrireLog(QStringLiteral("recuperer_mesures : zone_itessalin(\"Config_iTessalin\")"), false);
    ZonePartagee zone_itessalin(Le_Tessalin::CLE);
    ecrireLog(QStringLiteral("recuperer_mesures : zone_voies.attach() && zone_itessalin.attach()"),
              false);
    if (zone_voies.attach(QSharedMemory::ReadWrite) &&
        zone_itessalin.attach(QSharedMemory::ReadWrite)) {
        ecrireLog(QStringLiteral("recuperer_mesures : zone_voies.data()"), false);
        const VueZone voies = zone_voies.vue();
        ecrireLog(QStringLiteral("recuperer_mesures : zone_itessalin.data()"), false);
        const VueZone tessalin = zone_itessalin.vue();

        if (demande.octets && adresseBR.isEmpty())
            publierAdresseBR(demande, tessalin);
        reconcilierRegistre(voies);
        publierMesures(voies);
    } else {
        // The same words whichever of the two is missing.
        ecrireLog(
            QStringLiteral(
                "recuperer_mesures : Impossible d'ouvrir QSharedMemory Config_Voies_iTessalin"),
            false);
    }

    ecrireLog(
        QStringLiteral("recuperer_mesures : après zone_voies.attach() && zone_itessalin.attach()"),
        false);
    ecrireLog(QStringLiteral("fin recuperer_mesures"), false);
    zone_itessalin.detach();
    zone_voies.detach();
    zone_enregistrement.detach();
}

// Heartbeat, then the save of the module table when the main application
// asks for it. Without a copy of the table the request stays pending and is
// served by a later cycle.
void AcquisitionRadio::servirDemandeEnregistrement(const VueZone &demande)
{
    using namespace Demande_enregistrement;
    ecrireLog(QStringLiteral("recuperer_mesures : acquisitionRADIO_fonctionne = true"), false);
    if (demande.contient(OFFSET_ACQUISITIONRADIO_FONCTIONNE, 1))
        setAcquisitionRADIO_fonctionne(demande.octets, 1);

    ecrireLog(QStringLiteral("recuperer_mesures : demande_memoire->enregistrer_donnees_radio"),
              false);
    if (!demande.contient(OFFSET_ENREGISTRER_DONNEES_RADIO, 1) ||
        enregistrer_donnees_radio(demande.octets) == 0)
        return;
    ecrireLog(QStringLiteral("recuperer_mesures : Demande d'enregistrement ..."), false);
    les_modules_radio *lmr = fonctions_bases::getLesModulesRadio();
    if (!lmr)
        return;
    for (int i = 0; i < les_modules_radio::NB_MODULES; ++i) {
        const gestion_radio &module = lmr->modules[i];
        const QString adresse = module.numeroTexte();
        const auto present = static_cast<uchar>(module.present);
        ecrireLog(QStringLiteral("recuperer_mesures : setModuleBD %1 %2 %3 %4")
                      .arg(QString::number(i), adresse,
                           QString::number(module.date_changement_pile), QString::number(present)),
                  false);
        serveur.setModuleBD(adresse, module.date_changement_pile, present != 0);
    }
    ecrireLog(QStringLiteral("recuperer_mesures : free(lmr)"), false);
    std::free(lmr);
    ecrireLog(QStringLiteral("recuperer_mesures : demande_memoire->enregistrer_donnees_radio"),
              false);
    setEnregistrer_donnees_radio(demande.octets, 0);
}

// Once per process: the first non-empty address read is never read again.
// Only as many bytes as the address has characters are copied, and the
// newline of the file is part of the address, as the main application has
// always received it.
void AcquisitionRadio::publierAdresseBR(const VueZone &demande, const VueZone &tessalin)
{
    // Without the field, there is nowhere to publish: tried again next cycle.
    if (!tessalin.contient(Le_Tessalin::OFFSET_ADRESSE_BR, Le_Tessalin::LARGEUR_ADRESSE_BR) ||
        !demande.contient(Demande_enregistrement::OFFSET_CONFIG_MODIFIEE, 1))
        return;
    ecrireLog(QStringLiteral("Lecture de l'adresse du BR..."), false);
    adresseBR = lireAdresseBR();
    if (QString::fromUtf8(Le_Tessalin::adresse_br(tessalin.octets)) != adresseBR) {
        Le_Tessalin::setAdresse_br(tessalin.octets, adresseBR.toUtf8(), adresseBR.size());
        Demande_enregistrement::setConfig_modifiee(demande.octets, 1);
    }
    ecrireLog(QStringLiteral("Adresse du BR lu : %1").arg(adresseBR), false);
}

// The count is asked again before each channel, as the main application may
// publish it at any moment.
void AcquisitionRadio::reconcilierRegistre(const VueZone &voies)
{
    for (int v = 1; v <= fonctions_bases::nb_voies_parametrables(); ++v) {
        // A channel whose record lies past the segment's end is not configured.
        if (!voies.contient(La_config_voies::debutVoie(v), La_config_voies::TAILLE)) {
            effaceCapteurRecupere(v);
            continue;
        }
        const La_config_voies r = La_config_voies::depuis(voies.octets, v);
        if (!typeEstRADIO(r.type()))
            effaceCapteurRecupere(v);
        else
            enregistrerVoieRadio(v, r.type(), r.adresse(), r.numero());
    }
}

void AcquisitionRadio::publierMesures(const VueZone &voies)
{
    ecrireLog(QStringLiteral("recuperer_mesures : zone_mesure(\"Etat_iTessalin\")"), false);
    ZonePartagee zone_mesure(Etat::CLE);
    ecrireLog(QStringLiteral("recuperer_mesures : zone_mesure.attach()"), false);
    if (zone_mesure.attach(QSharedMemory::ReadWrite)) {
        ecrireLog(QStringLiteral("recuperer_mesures : zone_mesure.data()"), false);
        const VueZone mesure_memoire = zone_mesure.vue();
        ecrireLog(QStringLiteral("recuperer_mesures : après zone_mesure.data()"), false);

        for (auto it = connexions.constBegin(); it != connexions.constEnd(); ++it) {
            const int v = it.key();
            QConnexionRJ45 *connexion = it.value();
            double valeur = QConnexionRJ45::VALEUR_DEFAUT_GLOBAL;
            if (!connexion) {
                ecrireLog(QStringLiteral("Voie %1 n'a pas de QConnexionRJ45 développé").arg(v),
                          true);
            } else {
                try {
                    valeur = connexion->getMesureEnCours();
                } catch (...) {
                    // During the start-up grace period a channel without a
                    // reading keeps what the main application last saw.
                    continue;
                }
                if (v <= DERNIERE_VOIE_AVEC_OFFSET &&
                    voies.contient(La_config_voies::debutVoie(v), La_config_voies::TAILLE)) {
                    const double offset = La_config_voies::depuis(voies.octets, v).offset();
                    if (offset != 0.0) {
                        ecrireLog(QStringLiteral("Application de l'offset %1, mesure corrigée = %2")
                                      .arg(nombre(offset), nombre(valeur + offset)),
                                  false);
                        valeur += offset;
                    }
                }
            }
            // A channel whose value lies past the segment's end has no place there.
            if (!mesure_memoire.contient(Etat::offsetMesure(v), sizeof(double)))
                continue;
            ecrireLog(QStringLiteral("recuperer_mesures : mesure_memoire->Mesure[%1] = %2")
                          .arg(v)
                          .arg(nombre(valeur)),
                      false);
            Etat::setMesure(mesure_memoire.octets, v, valeur);
        }
    }
    ecrireLog(QStringLiteral("recuperer_mesures : après zone_mesure.attach()"), false);
    zone_mesure.detach();
}

// The first line of the address file as fgets reads it into a 9-byte buffer:
// at most 8 bytes, the newline kept when the line is shorter.
QString AcquisitionRadio::lireAdresseBR()
{
    QString resultat;
    QFile fichier(Environnement::chemin(QString::fromLatin1(CHEMIN_ADRESSE_BR)));
    if (!fichier.exists() || !fichier.open(QIODevice::ReadOnly))
        return resultat;
    char tampon[9] = {};
    if (fichier.readLine(tampon, sizeof tampon) < 0)
        tampon[0] = '\0';
    fichier.close();
    resultat = QString::fromUtf8(tampon);
    return resultat;
}
