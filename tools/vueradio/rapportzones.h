#ifndef RAPPORTZONES_H
#define RAPPORTZONES_H

#include "rapport.h"

// The fields of the four zones of the main application that the service
// uses: the request block, the device configuration (border-router address),
// the channel configuration and the published values.
namespace RapportZones {

Rapport rendre();

} // namespace RapportZones

#endif // RAPPORTZONES_H
