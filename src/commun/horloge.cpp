#include "commun/horloge.h"

#include <QThread>

#include <atomic>

namespace {
std::atomic<bool> figee{false};
std::atomic<qint64> msFigees{0};
} // namespace

QDateTime Horloge::maintenant()
{
    if (figee.load())
        return QDateTime::fromMSecsSinceEpoch(msFigees.load());
    return QDateTime::currentDateTime();
}

QDateTime Horloge::maintenantUtc()
{
    if (figee.load())
        return QDateTime::fromMSecsSinceEpoch(msFigees.load(), Qt::UTC);
    return QDateTime::currentDateTimeUtc();
}

quint32 Horloge::maintenantSecondes()
{
    const qint64 ms = figee.load() ? msFigees.load() : QDateTime::currentMSecsSinceEpoch();
    return static_cast<quint32>(ms / 1000);
}

void Horloge::dormir(unsigned long secondes)
{
    if (figee.load()) {
        msFigees.fetch_add(static_cast<qint64>(secondes) * 1000);
        return;
    }
    QThread::sleep(secondes);
}

void Horloge::figer(const QDateTime &instant)
{
    msFigees.store(instant.toMSecsSinceEpoch());
    figee.store(true);
}

void Horloge::avancer(qint64 secondes)
{
    msFigees.fetch_add(secondes * 1000);
}

void Horloge::liberer()
{
    figee.store(false);
}

bool Horloge::estFigee()
{
    return figee.load();
}
