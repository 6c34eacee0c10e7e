#ifndef SQLTEXTE_H
#define SQLTEXTE_H

#include <QLatin1Char>
#include <QLatin1String>
#include <QSqlError>
#include <QString>

// Helpers shared by every task that writes statements for the radio database.

// Text substituted between single quotes of a statement: each quote is
// doubled, so that the text stays one literal. Addresses and values sent by
// real modules hold no quote and pass unchanged.
inline QString texteSql(QString texte)
{
    texte.replace(QLatin1Char('\''), QLatin1String("''"));
    return texte;
}

// The statement's error number: -1 when it succeeded, 0 or more when it
// failed (a driver error that carries no code counts as no error, as Qt's own
// error number has always reported it).
inline int numeroErreur(const QSqlError &erreur)
{
    const QString code = erreur.nativeErrorCode();
    return code.isEmpty() ? -1 : code.toInt();
}

// A double as QString::arg(double) writes it (format 'g', default
// precision), to be substituted in one pass with texts that may hold "%1".
inline QString texteDouble(double valeur)
{
    return QStringLiteral("%1").arg(valeur);
}

#endif // SQLTEXTE_H
