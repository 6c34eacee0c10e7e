#include "lecturezones.h"

#include "radio/fonctions_bases.h"

#include <QDir>
#include <QSharedMemory>

namespace LectureZones {

Copie copier(const QString &cle)
{
    QSharedMemory zone(cle);
    if (!zone.attach(QSharedMemory::ReadOnly))
        return {QByteArray(), zone.errorString(), zone.error() == QSharedMemory::NotFound};
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
