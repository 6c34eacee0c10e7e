#include "log/logquintaris.h"

#include "commun/horloge.h"

#include <QMetaMethod>

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
    // Without a listener (no "-log") the emission reaches no one: the line is
    // not even stamped, each local time costing a time-zone lookup.
    static const QMetaMethod signalLog = QMetaMethod::fromSignal(&LogQuintaris::log);
    if (isSignalConnected(signalLog))
        emit log(LigneLog(texte));
}
