#include "udp/qserveurudp.h"

void QServeurUdp::traiterDatagram(QByteArray) {}
