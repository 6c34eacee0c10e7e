#include "radio/fonctions_bases.h"

#include <cstdlib>
#include <cstring>

const char *const fonctions_bases::CLE_ZONE_HF = "Zone_HF";

void fonctions_bases::setModule(gestion_radio) {}
void fonctions_bases::setModuleTaux(QString, double, double) {}
les_modules_radio *fonctions_bases::getLesModulesRadio() { return nullptr; }
gestion_radio fonctions_bases::moduleNonTrouve()
{
    gestion_radio gr;
    std::memset(&gr, 0, sizeof gr);
    return gr;
}
gestion_radio fonctions_bases::getModule(QString) { return moduleNonTrouve(); }
QList<La_config_voies> fonctions_bases::getLesVoiesRadio(QString, QStringList) { return {}; }
QString fonctions_bases::getAdresseBR() { return {}; }
