#include "rendusvg.h"

#include <QProcess>
#include <QStandardPaths>

namespace RenduSvg {

bool rendre(const QByteArray &dot, const QString &fichier, QString *erreur)
{
    const QString programme = QStandardPaths::findExecutable(QStringLiteral("dot"));
    if (programme.isEmpty()) {
        *erreur = QStringLiteral("Graphviz 'dot' is not installed (Debian package graphviz): "
                                 "'vueradio arbre --dot' prints the graph to draw elsewhere");
        return false;
    }
    QProcess processus;
    processus.start(programme, {QStringLiteral("-Tsvg"), QStringLiteral("-o"), fichier});
    if (!processus.waitForStarted(10000)) {
        *erreur =
            QStringLiteral("%1 cannot be started: %2").arg(programme, processus.errorString());
        return false;
    }
    processus.write(dot);
    processus.closeWriteChannel();
    if (!processus.waitForFinished(60000)) {
        processus.kill();
        processus.waitForFinished(5000);
        *erreur = QStringLiteral("%1 did not finish").arg(programme);
        return false;
    }
    if (processus.exitStatus() != QProcess::NormalExit || processus.exitCode() != 0) {
        *erreur = QStringLiteral("%1 failed (status %2): %3")
                      .arg(programme)
                      .arg(processus.exitCode())
                      .arg(QString::fromLocal8Bit(processus.readAllStandardError()).trimmed());
        return false;
    }
    return true;
}

} // namespace RenduSvg
