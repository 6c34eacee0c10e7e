#ifndef TABLEAUAPPAREIL_H
#define TABLEAUAPPAREIL_H

#include <QString>
#include <QStringList>

class ConfigurationAppareil;
class DoublureApplication;

// The live table of the appliance simulator, as plain text: what the service
// published (channel values, heartbeat, save request, border-router address)
// and the radio module table it maintains.
namespace TableauAppareil {

struct Contexte
{
    QString racine;
    QString repertoireSegments;
    quint32 maintenant = 0;
    // With the heartbeat cleared after each reading, the age of the last one
    // (-1 before the first); otherwise the byte itself is shown.
    bool razBattement = false;
    qint64 ageBattement = -1;
    QStringList fichiersSuivis;
    int lignesSuivies = 5;
    QStringList messages;
};

QString rendre(const DoublureApplication &doublure, const ConfigurationAppareil &configuration,
               const Contexte &contexte);

// Text made visible: a newline shows as \n, other control bytes as \xNN.
QString visible(const QByteArray &octets);

} // namespace TableauAppareil

#endif // TABLEAUAPPAREIL_H
