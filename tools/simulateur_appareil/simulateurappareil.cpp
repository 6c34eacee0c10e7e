#include "simulateurappareil.h"

#include "tableauappareil.h"

#include "commun/environnement.h"
#include "commun/horloge.h"
#include "radio/demande_enregistrement.h"
#include "radio/fonctions_bases.h"

#include <QDir>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {
constexpr int NB_MESSAGES_AFFICHES = 4;

bool lireEntier(const QString &texte, int *valeur)
{
    bool ok = false;
    *valeur = texte.toInt(&ok);
    return ok;
}
} // namespace

SimulateurAppareil::SimulateurAppareil(const ConfigurationAppareil &configuration,
                                       const OptionsAffichage &affichage, QObject *parent)
    : QObject(parent)
    , configuration(configuration)
    , affichage(affichage)
    , terminal(::isatty(STDOUT_FILENO) != 0)
{}

QString SimulateurAppareil::cheminBaseAppareil()
{
    return Environnement::chemin(fonctions_bases::CHEMIN_BASE_APPAREIL);
}

bool SimulateurAppareil::creerBaseAppareil(QString *erreur) const
{
    return DoublureApplication::creerBaseAppareil(cheminBaseAppareil(),
                                                  configuration.typesEffectifs(), erreur);
}

bool SimulateurAppareil::creerZones(QString *erreur)
{
    if (!doublure.creerZones(erreur))
        return false;
    doublure.setNbVoiesPubliees(configuration.nbVoies);
    if (configuration.adresseBRDonnee)
        doublure.setAdresseBR(configuration.adresseBR);
    for (const VoieConfiguree &v : qAsConst(configuration.voies))
        doublure.ecrireVoie(v.voie, v.type, v.adresse, v.numero, v.offset);
    return true;
}

void SimulateurAppareil::demarrerAffichage()
{
    if (!affichage.tableau)
        return;
    minuterie = new QTimer(this);
    connect(minuterie, &QTimer::timeout, this, &SimulateurAppareil::rafraichir);
    minuterie->start(1000);
    rafraichir();
}

QString SimulateurAppareil::aide()
{
    return QStringLiteral(
        "enregistrer                                raise the save request (byte 80 = 1)\n"
        "voie <v> <type> <address> <numero> [<off>]  (re)configure channel v; type by name or "
        "number\n"
        "effacer <v>                                clear channel v's record\n"
        "retirer <module>                           clear the module's 'present' byte in Zone_HF\n"
        "pile <module> <date>                       set the module's battery-change date (Unix s)\n"
        "adresse_br <text>                          overwrite the published border-router address\n"
        "config_modifiee <0|1>                      set byte 0 of Demande_enreg\n"
        "battement <0|1>                            set the heartbeat byte (81)\n"
        "mesure <v> <value>                         write Mesure[v] as the main application would\n"
        "aide                                       this list\n"
        "quitter                                    stop (the segments are removed)");
}

int SimulateurAppareil::slotModule(const QString &adresse) const
{
    const QByteArray octets = doublure.octetsZoneHF();
    if (octets.size() < static_cast<int>(sizeof(les_modules_radio)))
        return -1;
    for (int i = 0; i < les_modules_radio::NB_MODULES; ++i) {
        gestion_radio m;
        std::memcpy(&m, octets.constData() + i * static_cast<int>(sizeof m), sizeof m);
        if (m.numeroTexte() == adresse)
            return i;
    }
    return -1;
}

QString SimulateurAppareil::executer(const QString &ligne)
{
    using namespace Demande_enregistrement;
    QString erreur;
    const QStringList mots = ConfigurationAppareil::decouperMots(ligne, &erreur);
    if (!erreur.isEmpty())
        return QStringLiteral("error: ") + erreur;
    if (mots.isEmpty())
        return QString();
    const QString &commande = mots.first();
    int entier = 0;

    if (commande == QLatin1String("enregistrer") && mots.size() == 1) {
        doublure.setOctetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO, 1);
        return QStringLiteral("save request raised");
    }
    if (commande == QLatin1String("voie")) {
        VoieConfiguree v;
        if (!configuration.lireVoie(mots, &v, &erreur))
            return QStringLiteral("error: ") + erreur;
        configuration.voies.insert(v.voie, v);
        doublure.ecrireVoie(v.voie, v.type, v.adresse, v.numero, v.offset);
        return QStringLiteral("channel %1: type %2 (%3), address \"%4\", numero %5, offset %6")
            .arg(v.voie)
            .arg(v.type)
            .arg(configuration.nomType(v.type), TableauAppareil::visible(v.adresse))
            .arg(v.numero)
            .arg(v.offset);
    }
    if (commande == QLatin1String("effacer") && mots.size() == 2 &&
        lireEntier(mots.at(1), &entier) && entier >= 1 && entier <= DoublureApplication::NB_VOIES) {
        configuration.voies.remove(entier);
        doublure.effacerVoie(entier);
        return QStringLiteral("channel %1 cleared").arg(entier);
    }
    if ((commande == QLatin1String("retirer") && mots.size() == 2) ||
        (commande == QLatin1String("pile") && mots.size() == 3)) {
        const int slot = slotModule(mots.at(1));
        if (slot < 0)
            return QStringLiteral("error: module %1 is not in Zone_HF").arg(mots.at(1));
        gestion_radio m;
        std::memcpy(&m, doublure.octetsZoneHF().constData() + slot * static_cast<int>(sizeof m),
                    sizeof m);
        if (commande == QLatin1String("retirer")) {
            m.present = 0;
        } else {
            if (!lireEntier(mots.at(2), &entier))
                return QStringLiteral("error: the date must be an integer");
            m.date_changement_pile = entier;
        }
        doublure.ecrireModule(slot, m);
        return commande == QLatin1String("retirer")
                   ? QStringLiteral("module %1 (slot %2) marked for removal")
                         .arg(mots.at(1))
                         .arg(slot)
                   : QStringLiteral("module %1: battery changed at %2").arg(mots.at(1)).arg(entier);
    }
    if (commande == QLatin1String("adresse_br") && mots.size() == 2) {
        doublure.setAdresseBR(mots.at(1).toUtf8());
        return QStringLiteral("border-router address field overwritten");
    }
    if ((commande == QLatin1String("config_modifiee") || commande == QLatin1String("battement")) &&
        mots.size() == 2 && lireEntier(mots.at(1), &entier) && entier >= 0 && entier <= 255) {
        const int offset = commande == QLatin1String("battement")
                               ? OFFSET_ACQUISITIONRADIO_FONCTIONNE
                               : OFFSET_CONFIG_MODIFIEE;
        doublure.setOctetDemande(offset, static_cast<uchar>(entier));
        return QStringLiteral("%1 = %2").arg(commande).arg(entier);
    }
    if (commande == QLatin1String("mesure") && mots.size() == 3 &&
        lireEntier(mots.at(1), &entier)) {
        bool ok = false;
        const double valeur = mots.at(2).toDouble(&ok);
        if (!ok)
            return QStringLiteral("error: the value must be a number");
        doublure.setMesure(entier, valeur);
        return QStringLiteral("Mesure[%1] = %2").arg(entier).arg(valeur);
    }
    if (commande == QLatin1String("aide") || commande == QLatin1String("help"))
        return aide();
    if (commande == QLatin1String("quitter") || commande == QLatin1String("quit")) {
        emit quitterDemande();
        return QStringLiteral("stopping");
    }
    return QStringLiteral("error: unknown or malformed command '%1' (try: aide)").arg(ligne);
}

void SimulateurAppareil::recevoirCommande(const QString &ligne)
{
    const QString resultat = executer(ligne);
    if (!resultat.isEmpty())
        signaler(resultat);
}

void SimulateurAppareil::signaler(const QString &message)
{
    if (!affichage.tableau) {
        std::fprintf(stdout, "%s\n", message.toUtf8().constData());
        std::fflush(stdout);
        return;
    }
    // A multi-line answer (the command list) replaces the last messages
    // until the next command.
    if (message.contains(QLatin1Char('\n'))) {
        messages = message.split(QLatin1Char('\n'));
        messagesSontAide = true;
    } else {
        if (messagesSontAide)
            messages.clear();
        messagesSontAide = false;
        messages.append(message);
        while (messages.size() > NB_MESSAGES_AFFICHES)
            messages.removeFirst();
    }
    rafraichir();
}

void SimulateurAppareil::rafraichir()
{
    const quint32 maintenant = Horloge::maintenantSecondes();
    if (affichage.razBattement &&
        doublure.octetDemande(Demande_enregistrement::OFFSET_ACQUISITIONRADIO_FONCTIONNE)) {
        dernierBattement = maintenant;
        doublure.setOctetDemande(Demande_enregistrement::OFFSET_ACQUISITIONRADIO_FONCTIONNE, 0);
    }
    TableauAppareil::Contexte contexte;
    contexte.racine = Environnement::racine();
    contexte.repertoireSegments = QDir::tempPath();
    contexte.maintenant = maintenant;
    contexte.razBattement = affichage.razBattement;
    contexte.ageBattement = dernierBattement < 0 ? -1 : maintenant - dernierBattement;
    contexte.fichiersSuivis = affichage.fichiersSuivis;
    contexte.messages = messages;
    const QByteArray texte = TableauAppareil::rendre(doublure, configuration, contexte).toUtf8();
    if (terminal)
        std::fputs("\033[H\033[2J", stdout);
    else
        std::fputs("----\n", stdout);
    std::fwrite(texte.constData(), 1, static_cast<size_t>(texte.size()), stdout);
    std::fflush(stdout);
}
