#ifndef FONCTIONS_BASES_H
#define FONCTIONS_BASES_H

#include "radio/gestion_radio.h"
#include "radio/la_config_voies.h"

#include <QList>
#include <QObject>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>

class QSqlQueryModel;

// Number of configurable channels of the radio-equipped appliance.
extern const int NBVOIES_BASE;
// Channel count published by the main application, cached on first read.
extern int NBVOIES;

// The device-database library as the radio service uses it: the module table
// "Zone_HF" (static, fonctions_bases_zonehf.cpp) and the channel types of
// "/var/base/itessalin.db" (fonctions_bases_appareil.cpp).
class fonctions_bases : public QObject
{
    Q_OBJECT
public:
    static const QString CHEMIN_BASE_APPAREIL;
    static const char *const CLE_ZONE_HF;

    explicit fonctions_bases(QObject *parent = nullptr);

    // Module table "Zone_HF"
    static void setModule(gestion_radio gr);
    static void setModuleTaux(QString adresse, double taux_reception, double taux_utilisation);
    // A malloc'ed copy of the whole table, or null; the caller frees it.
    static les_modules_radio *getLesModulesRadio();
    static gestion_radio getModule(QString adresse);
    static QList<La_config_voies> getLesVoiesRadio(QString adresse, QStringList types);
    static QString getAdresseBR();
    // The record getModule returns when the module is not in the table.
    static gestion_radio moduleNonTrouve();

    // Device database
    bool ouvre_base();
    bool execute_sql(QSqlQueryModel *model, QString sql);
    QStringList retourne_type_voies();
    QList<int> getLesTypesVoiesContact();
    static int nb_voies_parametrables();

private:
    QSqlDatabase base;
};

#endif // FONCTIONS_BASES_H
