#include "baselecture.h"

#include <QFileInfo>
#include <QSqlError>

#include <atomic>

namespace {
std::atomic<int> compteur{0};
}

BaseEnLecture::BaseEnLecture(const QString &chemin)
    : nom(QStringLiteral("vueradio_%1").arg(compteur.fetch_add(1)))
{
    if (!QFileInfo(chemin).isFile()) {
        erreur = QStringLiteral("database %1 does not exist").arg(chemin);
        return;
    }
    QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), nom);
    base.setDatabaseName(chemin);
    // The service may be writing: wait a little for its lock rather than fail.
    base.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY;QSQLITE_BUSY_TIMEOUT=2000"));
    if (!base.open())
        erreur =
            QStringLiteral("database %1 cannot be opened: %2").arg(chemin, base.lastError().text());
}

BaseEnLecture::~BaseEnLecture()
{
    if (QSqlDatabase::contains(nom)) {
        QSqlDatabase::database(nom, false).close();
        QSqlDatabase::removeDatabase(nom);
    }
}

QSqlDatabase BaseEnLecture::base() const
{
    return QSqlDatabase::database(nom, false);
}
