#include "cleqt.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

#include <sys/ipc.h>

QString CleQt::fichier(const QString &cle)
{
    QString lettres;
    for (const QChar c : cle) {
        if ((c >= QLatin1Char('a') && c <= QLatin1Char('z')) ||
            (c >= QLatin1Char('A') && c <= QLatin1Char('Z')))
            lettres += c;
    }
    const QByteArray empreinte = QCryptographicHash::hash(cle.toUtf8(), QCryptographicHash::Sha1);
    return QDir::tempPath() + QStringLiteral("/qipc_sharedmemory_") + lettres +
           QString::fromLatin1(empreinte.toHex());
}

key_t CleQt::cleSystemeV(const QString &cle)
{
    return ::ftok(QFile::encodeName(fichier(cle)).constData(), 'Q');
}
