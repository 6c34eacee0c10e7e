#include "bacasable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUdpSocket>

namespace {
const char *const VARIABLES[] = {"ACQUISITIONRADIO_RACINE", "ACQUISITIONRADIO_ADRESSE",
                                 "ACQUISITIONRADIO_PORT", "TMPDIR"};
}

BacASable::BacASable()
{
    if (!dossier.isValid())
        return;
    const QStringList dossiers = {QStringLiteral("racine/var/base"),
                                  QStringLiteral("racine/var/log"),
                                  QStringLiteral("racine/root"),
                                  QStringLiteral("racine/etc/init.d"),
                                  QStringLiteral("racine/etc/scripts"),
                                  QStringLiteral("racine/run"),
                                  QStringLiteral("tmp")};
    for (const QString &d : dossiers)
        QDir(dossier.path()).mkpath(d);
    ecrireScript(QStringLiteral("/etc/init.d/tunslip6"), QString());
    ecrireScript(QStringLiteral("/etc/scripts/reset_br.sh"), QString());
    ecrireScript(QStringLiteral("/etc/scripts/repair_br.sh"), QString());
}

BacASable::~BacASable()
{
    if (!actif)
        return;
    for (const auto &variable : qAsConst(sauvegarde)) {
        if (variable.second.isNull())
            qunsetenv(variable.first.constData());
        else
            qputenv(variable.first.constData(), variable.second);
    }
}

QString BacASable::racine() const
{
    return dossier.path() + QStringLiteral("/racine");
}

QString BacASable::tmp() const
{
    return dossier.path() + QStringLiteral("/tmp");
}

QString BacASable::chemin(const QString &absolu) const
{
    return racine() + absolu;
}

void BacASable::activer(quint16 port)
{
    if (!actif) {
        for (const char *nom : VARIABLES)
            sauvegarde.append({nom, qEnvironmentVariableIsSet(nom) ? qgetenv(nom) : QByteArray()});
        actif = true;
    }
    const QProcessEnvironment env = environnement(port);
    for (const char *nom : VARIABLES)
        qputenv(nom, env.value(QString::fromLatin1(nom)).toLocal8Bit());
}

QProcessEnvironment BacASable::environnement(quint16 port) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ACQUISITIONRADIO_RACINE"), racine());
    env.insert(QStringLiteral("ACQUISITIONRADIO_ADRESSE"), QStringLiteral("::1"));
    env.insert(QStringLiteral("ACQUISITIONRADIO_PORT"), QString::number(port));
    env.insert(QStringLiteral("TMPDIR"), tmp());
    return env;
}

QStringList BacASable::appels() const
{
    QFile journal(dossier.path() + QStringLiteral("/appels.txt"));
    if (!journal.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(journal.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void BacASable::ecrireScript(const QString &absolu, const QString &corps) const
{
    QFile script(chemin(absolu));
    if (!script.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return;
    const QString nom = QFileInfo(absolu).fileName();
    const QString journal = dossier.path() + QStringLiteral("/appels.txt");
    script.write(QStringLiteral("#!/bin/sh\necho \"%1${1:+ $1}\" >> '%2'\n%3\n")
                     .arg(nom, journal, corps)
                     .toUtf8());
    script.close();
    script.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                          QFileDevice::ReadGroup | QFileDevice::ExeGroup | QFileDevice::ReadOther |
                          QFileDevice::ExeOther);
}

quint16 BacASable::portLibre()
{
    QUdpSocket socket;
    if (!socket.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0))
        return 0;
    return socket.localPort();
}
