#include "udp/qserveurudp.h"

void QServeurUdp::creerBD() {}
void QServeurUdp::setModuleBD(QString, int, bool) {}
QSqlDatabase QServeurUdp::connexionTache(const QString &, const QString &) { return {}; }
