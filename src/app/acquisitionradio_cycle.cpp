#include "app/acquisitionradio.h"

const char *const AcquisitionRadio::CHEMIN_ADRESSE_BR = "/root/br_itessalin.txt";

void AcquisitionRadio::recuperer_mesures() { ecrireLog(QStringLiteral("début recuperer_mesures"), false); ecrireLog(QStringLiteral("fin recuperer_mesures"), false); }
QString AcquisitionRadio::lireAdresseBR() { return {}; }
void AcquisitionRadio::servirDemandeEnregistrement(uchar *) {}
void AcquisitionRadio::publierAdresseBR(uchar *, uchar *) {}
void AcquisitionRadio::reconcilierRegistre(const uchar *) {}
void AcquisitionRadio::publierMesures(const uchar *) {}
