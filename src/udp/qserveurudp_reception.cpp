#include "udp/qserveurudp.h"

void QServeurUdp::ouvrirSiNonOuvert() {}
void QServeurUdp::processPendingDatagrams() {}
quint16 QServeurUdp::portLie() const { return 0; }
