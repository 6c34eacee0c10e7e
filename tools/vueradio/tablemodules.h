#ifndef TABLEMODULES_H
#define TABLEMODULES_H

#include "rapport.h"

#include <QtGlobal>

// The module table "Zone_HF", one line per used slot.
namespace TableModules {

Rapport rendre(quint32 maintenant);

} // namespace TableModules

#endif // TABLEMODULES_H
