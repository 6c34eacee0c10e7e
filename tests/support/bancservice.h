#ifndef BANCSERVICE_H
#define BANCSERVICE_H

#include "bacasable.h"
#include "radio/champs.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

// First column of each row of a statement on an SQLite file.
inline QStringList requete(const QString &fichier, const QString &sql)
{
    QStringList lignes;
    {
        QSqlDatabase base = QSqlDatabase::addDatabase("QSQLITE", "verification");
        base.setDatabaseName(fichier);
        base.open();
        for (QSqlQuery query(sql, base); query.next();)
            lignes << query.value(0).toString();
    }
    QSqlDatabase::removeDatabase("verification");
    return lignes;
}

#endif // BANCSERVICE_H
