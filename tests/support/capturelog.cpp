#include "capturelog.h"

#include <QtGlobal>

namespace {
QMutex mutexCapture;
QStringList capturees;
QtMessageHandler precedent = nullptr;

void capturer(QtMsgType type, const QMessageLogContext &contexte, const QString &message)
{
    {
        QMutexLocker verrou(&mutexCapture);
        capturees.append(message);
    }
    if (type == QtFatalMsg && precedent)
        precedent(type, contexte, message);
}
} // namespace

CaptureLog::CaptureLog()
{
    vider();
    precedent = qInstallMessageHandler(capturer);
}

CaptureLog::~CaptureLog()
{
    qInstallMessageHandler(precedent);
}

QStringList CaptureLog::lignes() const
{
    QMutexLocker verrou(&mutexCapture);
    return capturees;
}

void CaptureLog::vider()
{
    QMutexLocker verrou(&mutexCapture);
    capturees.clear();
}

QStringList CaptureLog::contenant(const QString &texte) const
{
    QStringList resultat;
    const QStringList toutes = lignes();
    for (const QString &ligne : toutes) {
        if (ligne.contains(texte))
            resultat.append(ligne);
    }
    return resultat;
}
