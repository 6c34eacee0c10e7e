#ifndef LOGQUINTARIS_H
#define LOGQUINTARIS_H

#include <QDateTime>
#include <QMetaType>
#include <QObject>
#include <QString>

// Log signal source of the acquisition side: each message becomes a
// timestamped line emitted through log(); a console writer is attached only
// when the service runs with "-log".
class LogQuintaris : public QObject
{
    Q_OBJECT
public:
    class LigneLog
    {
    public:
        LigneLog() = default;
        explicit LigneLog(const QString &texte);

        // "dd/MM/yyyy", one space, the text.
        QString toString() const;

        QString texte;
        QDateTime dateHeure;
    };

    explicit LogQuintaris(const QString &nom);

    void ecrireLog(const QString &texte);

    QString nom;

signals:
    void log(LogQuintaris::LigneLog ligne);
};

Q_DECLARE_METATYPE(LogQuintaris::LigneLog)

#endif // LOGQUINTARIS_H
