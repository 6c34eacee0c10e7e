#include "udp/qserveurudp.h"

void QServeurUdp::supprimerAnciensModules() {}
void QServeurUdp::supprimerAnciennesMesures() {}
void QServeurUdp::supprimerAnciensTaux() {}
