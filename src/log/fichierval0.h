#ifndef FICHIERVAL0_H
#define FICHIERVAL0_H

#include <QString>

// "/var/log/aradio_val0.txt", the log file that the main application's people
// read. Both log paths append to it, opening and closing it for each message.
namespace FichierVal0 {

constexpr const char *CHEMIN = "/var/log/aradio_val0.txt";

// Appends the current date-time in Qt's text format, a space and the text,
// then `finDeLigne` (empty for the acquisition log, "\n" for the connections'
// log). A file that cannot be opened loses the message silently.
void ajouter(const QString &texte, const char *finDeLigne);

} // namespace FichierVal0

#endif // FICHIERVAL0_H
