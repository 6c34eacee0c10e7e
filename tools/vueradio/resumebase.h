#ifndef RESUMEBASE_H
#define RESUMEBASE_H

#include "rapport.h"

#include <QtGlobal>

// A summary of the radio database "/var/base/hf.db": rows per table, the
// last frame of each module, and the reception rates of the last 24 hours.
namespace ResumeBase {

constexpr qint64 FENETRE_TAUX = 24 * 3600;

Rapport rendre(quint32 maintenant);

} // namespace ResumeBase

#endif // RESUMEBASE_H
