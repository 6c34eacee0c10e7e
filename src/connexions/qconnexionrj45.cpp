#include "connexions/qconnexionrj45.h"

#include "commun/horloge.h"

#include <QVector>

// Taken on the real clock when the program's static data are set up: the
// start-up grace period counts from the start of the process, not from the
// creation of each connection.
QDateTime QConnexionRJ45::dh_demarrage = QDateTime::currentDateTime();
const double QConnexionRJ45::VALEUR_DEFAUT_GLOBAL = 0.0;
int QConnexionRJ45::NETWORK_TIMEOUT_MS = 10000;
const QString QConnexionRJ45::FICHIER_LOG = QStringLiteral("/var/log/acquisitionrj45.log");

QConnexionRJ45::QConnexionRJ45(const QString &type, int nbMinutes)
    : nbMinutesHistorique(nbMinutes)
    , nbSecondesMaximumHistorique(60L * nbMinutes)
    , historique(new QMap<long, double>)
    , typeConnexionRJ45(type)
{}

QConnexionRJ45::QConnexionRJ45(const QString &type)
    : QConnexionRJ45(type, 3)
{}

// The history belongs to this connection alone and nothing keeps a pointer to
// it, so it goes with the connection.
QConnexionRJ45::~QConnexionRJ45()
{
    delete historique;
}

double QConnexionRJ45::getMesureEnCours()
{
    ecrireLog(QStringLiteral("QConnexionRJ45::getMesureEnCours()"), false, false);

    double v = 0.0;
    try {
        v = getMesureEnCoursSousType();
        ajouterDansHistorique(v);
    } catch (...) {
        ecrireLog(QStringLiteral("Mesure non récupérée suite à Exception"), false, false);
        ecrireLog(QStringLiteral("Aucune donnée récupérée... Récupération de la dernière mesure "
                                 "dans l'historique."),
                  false, false);
        // The value taken back from the history is not stored again: it
        // would otherwise look like a fresh measurement and never age out.
        v = getDerniereMesureHistorique();
        if (v == 0.0)
            ecrireLog(QStringLiteral("Suite à exception sur récupération de la mesure du capteur, "
                                     "valeur récupérée de l'historique = %1")
                          .arg(v),
                      false, false);
        ecrireLog(QStringLiteral("Dernière mesure récupérée de l'historique = %1").arg(v), false,
                  false);

        // During start-up the modules have not all spoken yet: the failure is
        // passed on so that the cycle leaves the channel unwritten rather than
        // publishing a default. Unsigned on purpose: a clock set back before
        // the start ends the grace period at once.
        const quint32 maintenant = Horloge::maintenantSecondes();
        const quint32 demarrage = static_cast<quint32>(dh_demarrage.toSecsSinceEpoch());
        const quint32 ecoule = maintenant - demarrage;
        const quint32 duree = NB_MINUTES_IGNORER_ERREUR_MESURE_APRES_DEMARRAGE * 60;
        if (ecoule < duree) {
            ecrireLog(QStringLiteral("Erreur de récupération de valeur ignorée car pendant la "
                                     "période de démarrage (reste %1 sec.)")
                          .arg(duree - ecoule),
                      false, false);
            throw -1;
        }
    }

    // Only a zero is traced: it is the value that hides a fault most easily.
    if (v == 0.0)
        ecrireLog(QStringLiteral("getMesureEnCours = %1").arg(v), false, false);
    return v;
}

void QConnexionRJ45::ajouterDansHistorique(double valeur)
{
    ecrireLog(QStringLiteral("Ajout dans l'historique : %1").arg(valeur), false, false);
    historique->insert(static_cast<long>(Horloge::maintenantSecondes()), valeur);
    purgerAnciennesMesuresHistorique();
}

void QConnexionRJ45::purgerAnciennesMesuresHistorique()
{
    ecrireLog(QStringLiteral("purge des mesures ancienne de plus de %1 secondes.")
                  .arg(nbSecondesMaximumHistorique),
              false, false);

    // Walked newest first, so that the count keeps the newest entries; the
    // purged keys are removed after the walk, which removing cannot disturb.
    // A line per entry is only formatted when it is written: the history of
    // a radio channel holds up to 1800 entries.
    const bool journal = doitEcrireLog();
    QVector<long> aPurger;
    int nbConserves = 0;
    for (auto it = historique->constEnd(); it != historique->constBegin();) {
        --it;
        const long limite = static_cast<long>(static_cast<qint64>(Horloge::maintenantSecondes()) -
                                              static_cast<qint64>(nbSecondesMaximumHistorique));
        if (journal)
            ecrireLog(QStringLiteral("%1 (iter.key()) < %2 (tdiff) ?").arg(it.key()).arg(limite),
                      false, false);
        const bool tropAncienne = it.key() < limite;
        const bool tropNombreuses = nbValeursHistorique > 0 && nbConserves >= nbValeursHistorique;
        if (tropAncienne || tropNombreuses) {
            if (journal)
                ecrireLog(QStringLiteral("purge de la mesure !"), false, false);
            aPurger.append(it.key());
        } else {
            ++nbConserves;
        }
    }
    for (const long cle : qAsConst(aPurger))
        historique->remove(cle);
}

double QConnexionRJ45::getDerniereMesureHistorique()
{
    purgerAnciennesMesuresHistorique();
    if (historique->isEmpty())
        return valeurDefaut;
    return historique->last();
}

double QConnexionRJ45::getAncienneMesureDeNSecondes(int n, bool *trouve)
{
    purgerAnciennesMesuresHistorique();
    ecrireLog(QStringLiteral("Recherche d'une ancienne mesure sur %1 secondes (%2 mesures en "
                             "mémoire)")
                  .arg(n)
                  .arg(historique->size()),
              false, false);

    for (auto it = historique->constBegin(); it != historique->constEnd(); ++it) {
        const long seuil = static_cast<long>(static_cast<qint64>(Horloge::maintenantSecondes()) -
                                             static_cast<qint64>(n));
        ecrireLog(QStringLiteral("Mesure seconde %1 >= %2 (mesure=%3)")
                      .arg(it.key())
                      .arg(seuil)
                      .arg(it.value()),
                  false, false);
        if (it.key() >= seuil) {
            ecrireLog(QStringLiteral("Ancienne mesure trouvée : %1").arg(it.value()), false, false);
            if (trouve)
                *trouve = true;
            return it.value();
        }
    }
    // The flag is left as the caller set it.
    return 0.0;
}
