#ifndef ACTIONSRESEAU_H
#define ACTIONSRESEAU_H

#include <QList>
#include <QString>

// The border-router supervision's last actions, found in the daemon's kept
// messages: the journal (systemd) or the init script's log file. The daemon
// always writes these lines, with its own date and time.
namespace ActionsReseau {

struct Action
{
    qint64 date = -1; // Unix seconds; -1 when none was found
    QString texte;    // what the line said after its tag
};

struct Dernieres
{
    Action restartTunnel; // every tunnel restart, at start or by the supervision
    Action reset;
    Action repair;
    QString source; // where they were looked for
    QString erreur; // why that source could not be read; empty when it was
};

// Reads the lines of the daemon's messages, oldest first.
void analyser(const QStringList &lignes, Dernieres &dernieres);

// From the journal when the board runs systemd and no sandbox root is set,
// otherwise from <root>/var/log/acquisitionradio.log and its last rotated copy.
Dernieres lire();

} // namespace ActionsReseau

#endif // ACTIONSRESEAU_H
