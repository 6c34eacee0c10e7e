#include "lecturezones.h"

#include "radio/fonctions_bases.h"
#include "radio/zonepartagee.h"

#include <QDir>

namespace LectureZones {

Copie copier(const QString &cle)
{
    // Attached as the service attaches, without Qt's semaphore of the name:
    // an inspection must not make or remove one under the main application.
    const QByteArray nom = cle.toLatin1();
    ZonePartagee zone(nom.constData());
    if (!zone.attach(QSharedMemory::ReadOnly)) {
        // No error of Qt's: a segment made but not yet in use, as good as absent.
        const bool introuvable =
            zone.error() == QSharedMemory::NotFound || zone.error() == QSharedMemory::NoError;
        return {QByteArray(), zone.errorString(), introuvable};
    }
    Copie copie{QByteArray(static_cast<const char *>(zone.constData()), zone.size()), QString(),
                false};
    zone.detach();
    return copie;
}

TableModules tableModules()
{
    return TableModules(fonctions_bases::getLesModulesRadio());
}

QString absence(const QString &cle, const Copie &copie)
{
    // Qt finds a segment through a key file under the temporary directory:
    // the inspector must run with the TMPDIR of the service.
    if (copie.introuvable)
        return QStringLiteral("segment %1 does not exist (looked up under TMPDIR %2; the main "
                              "application creates it)")
            .arg(cle, QDir::tempPath());
    return QStringLiteral("segment %1 cannot be attached read-only (TMPDIR %2): %3")
        .arg(cle, QDir::tempPath(),
             copie.erreur.isEmpty() ? QStringLiteral("too small") : copie.erreur);
}

QString absence(const QString &cle)
{
    return absence(cle, copier(cle));
}

} // namespace LectureZones
