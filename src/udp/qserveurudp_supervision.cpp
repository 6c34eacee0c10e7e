#include "udp/qserveurudp.h"

void QServeurUdp::verifierSiBesoinRepairBr() {}
void QServeurUdp::restartTunslip6() {}
