#include "capturelog.h"

#include <QtGlobal>

#include <mutex>

namespace {
std::mutex mutexCapture;
QStringList capturees;
QtMessageHandler precedent = nullptr;

void capturer(QtMsgType type, const QMessageLogContext &contexte, const QString &message)
{
    {
        std::lock_guard<std::mutex> verrou(mutexCapture);
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
    std::lock_guard<std::mutex> verrou(mutexCapture);
    // A block of its own: the logging threads append to the shared one.
    QStringList copie = capturees;
    copie.detach();
    return copie;
}

void CaptureLog::vider()
{
    std::lock_guard<std::mutex> verrou(mutexCapture);
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
