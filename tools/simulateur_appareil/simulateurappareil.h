#ifndef SIMULATEURAPPAREIL_H
#define SIMULATEURAPPAREIL_H

#include "configurationappareil.h"
#include "doublureapplication.h"

#include <QObject>
#include <QStringList>

class QTimer;

struct OptionsAffichage
{
    bool tableau = true;        // live table every second (else one line per command)
    bool razBattement = false;  // clear the heartbeat after each reading, as a watchdog would
    QStringList fichiersSuivis; // files whose last lines are shown under the table
};

// The main application as the service sees it: it holds the five segments
// and the device database, publishes the channel configuration, and takes
// commands that change it while the service runs.
class SimulateurAppareil : public QObject
{
    Q_OBJECT
public:
    SimulateurAppareil(const ConfigurationAppareil &configuration,
                       const OptionsAffichage &affichage, QObject *parent = nullptr);

    static QString cheminBaseAppareil();
    bool creerBaseAppareil(QString *erreur) const;
    bool creerZones(QString *erreur);
    void demarrerAffichage();

    // Runs one command line and returns what it did, or an error text
    // beginning with "error:".
    QString executer(const QString &ligne);
    static QString aide();

public slots:
    void recevoirCommande(const QString &ligne);

signals:
    void quitterDemande();

private:
    void rafraichir();
    void signaler(const QString &message);
    int slotModule(const QString &adresse) const;

    ConfigurationAppareil configuration;
    OptionsAffichage affichage;
    DoublureApplication doublure;
    QTimer *minuterie = nullptr;
    QStringList messages;
    bool messagesSontAide = false;
    qint64 dernierBattement = -1;
    bool terminal = false;
};

#endif // SIMULATEURAPPAREIL_H
