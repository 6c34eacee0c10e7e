#include "udp/qserveurudp.h"

void QServeurUdp::calculerTauxInfosTrames() {}
void QServeurUdp::enregistrerTaux() {}
void QServeurUdp::supprimerAnciennesInfosTrames() {}
