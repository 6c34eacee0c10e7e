#include "radio/fonctions_bases.h"

#include "commun/environnement.h"
#include "radio/le_tessalin.h"
#include "radio/zonepartagee.h"
#include "udp/sqltexte.h"

#include <QCoreApplication>
#include <QSqlQueryModel>
#include <QSqlRecord>
#include <QVariant>

const int NBVOIES_BASE = 64;
int NBVOIES = 0;

const QString fonctions_bases::CHEMIN_BASE_APPAREIL = QStringLiteral("/var/base/itessalin.db");

fonctions_bases::fonctions_bases(QObject *parent)
    : QObject(parent)
{}

bool fonctions_bases::ouvre_base()
{
    // Qt's default connection, re-added at each call as the device library
    // has always done (Qt replaces the previous one).
    QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"));
    base.setDatabaseName(Environnement::chemin(CHEMIN_BASE_APPAREIL));
    return base.open();
}

bool fonctions_bases::execute_sql(QSqlQueryModel *model, QString sql)
{
    // The main application may hold the database locked for a moment: the
    // attempts, with events processed around each, let it finish.
    static const int NB_ESSAIS = 10;
    for (int essai = 0; essai < NB_ESSAIS; ++essai) {
        QCoreApplication::processEvents();
        model->setQuery(sql, QSqlDatabase());
        QCoreApplication::processEvents();
        if (numeroErreur(model->lastError()) == -1)
            return true;
    }
    return false;
}

QStringList fonctions_bases::retourne_type_voies()
{
    QStringList noms;
    QSqlQueryModel model;
    execute_sql(&model, QStringLiteral("select * from config_type_voie order by numero;"));
    // rowCount() only reports what has been fetched so far.
    while (model.canFetchMore())
        model.fetchMore();
    for (int ligne = 0; ligne < model.rowCount(); ++ligne)
        noms.append(model.record(ligne).value(QStringLiteral("nom")).toString());
    return noms;
}

QList<int> fonctions_bases::getLesTypesVoiesContact()
{
    fonctions_bases fb;
    fb.ouvre_base();
    const QStringList types = fb.retourne_type_voies();
    QList<int> contacts;
    for (int i = 0; i < types.size(); ++i) {
        if (types.at(i).toLower().contains(QLatin1String("contact")))
            contacts.append(i);
    }
    return contacts;
}

int fonctions_bases::nb_voies_parametrables()
{
    // Asked before every channel of every cycle: read once, then cached.
    if (NBVOIES <= 0) {
        ZonePartagee zone(Le_Tessalin::CLE);
        if (zone.attach(QSharedMemory::ReadWrite)) {
            if (zone.size() >= Le_Tessalin::TAILLE_MINIMUM)
                NBVOIES = Le_Tessalin::nb_voies(static_cast<const uchar *>(zone.constData()));
            zone.detach();
        }
    }
    return NBVOIES_BASE;
}
