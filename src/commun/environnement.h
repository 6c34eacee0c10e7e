#ifndef ENVIRONNEMENT_H
#define ENVIRONNEMENT_H

#include <QString>

// Where the service finds its files, commands, address and port. On the
// appliance the compiled-in constants stand; three environment variables let
// the same binary run in a sandbox:
//   ACQUISITIONRADIO_RACINE   prefix of every absolute file path and command
//   ACQUISITIONRADIO_ADRESSE  IPv6 address the UDP socket binds to
//   ACQUISITIONRADIO_PORT     UDP port the socket binds to
namespace Environnement {

QString racine();

// The absolute path as the service must open it: under the sandbox root when
// one is set, unchanged otherwise.
QString chemin(const QString &cheminAbsolu);

// A shell command line whose program is an absolute path ("/etc/init.d/tunslip6
// stop"): the program is put under the sandbox root, the arguments unchanged.
QByteArray commande(const QString &ligneDeCommande);

QString adresseLiaison(const QString &adresseParDefaut);
quint16 portLiaison(quint16 portParDefaut);

} // namespace Environnement

#endif // ENVIRONNEMENT_H
