#ifndef BASELECTURE_H
#define BASELECTURE_H

#include <QSqlDatabase>
#include <QString>

// A read-only connection to an SQLite file of the appliance. A missing file
// is reported, never created (SQLite would make an empty one on a
// read-write open), and nothing is ever written through it.
class BaseEnLecture
{
public:
    explicit BaseEnLecture(const QString &chemin);
    ~BaseEnLecture();
    Q_DISABLE_COPY(BaseEnLecture)

    bool estOuverte() const { return erreur.isEmpty(); }
    // Why it could not be opened, as one line naming the file.
    QString raison() const { return erreur; }
    QSqlDatabase base() const;

private:
    QString nom;
    QString erreur;
};

#endif // BASELECTURE_H
