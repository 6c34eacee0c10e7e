#include "radio/fonctions_bases.h"

const int NBVOIES_BASE = 64;
int NBVOIES = 0;

const QString fonctions_bases::CHEMIN_BASE_APPAREIL = QStringLiteral("/var/base/itessalin.db");

fonctions_bases::fonctions_bases(QObject *parent)
    : QObject(parent)
{
}
bool fonctions_bases::ouvre_base() { return false; }
bool fonctions_bases::execute_sql(QSqlQueryModel *, QString) { return false; }
QStringList fonctions_bases::retourne_type_voies() { return {}; }
QList<int> fonctions_bases::getLesTypesVoiesContact() { return {}; }
int fonctions_bases::nb_voies_parametrables() { return NBVOIES_BASE; }
