#include "log/logquintaris.h"

#include "commun/horloge.h"

LogQuintaris::LigneLog::LigneLog(const QString &texte)
    : texte(texte)
    , dateHeure(Horloge::maintenant())
{}

QString LogQuintaris::LigneLog::toString() const
{
    return dateHeure.toString(QStringLiteral("dd/MM/yyyy")) + QLatin1Char(' ') + texte;
}

LogQuintaris::LogQuintaris(const QString &nom)
    : nom(nom)
{
    qRegisterMetaType<LogQuintaris::LigneLog>();
}

void LogQuintaris::ecrireLog(const QString &texte)
{
    emit log(LigneLog(texte));
}
