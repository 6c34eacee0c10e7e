#include "udp/qserveurudp.h"

void QServeurUdp::setModule(QDateTime, QString, QString, QString, int, double, QString, int) {}
