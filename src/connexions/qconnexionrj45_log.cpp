#include "connexions/qconnexionrj45.h"

#include "commun/environnement.h"
#include "commun/horloge.h"
#include "log/fichierval0.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QProcess>
#include <QStringList>

void QConnexionRJ45::definirEcrireFichierLog(bool actif)
{
    fichierLog = actif ? Environnement::chemin(FICHIER_LOG) : QString();
}

void QConnexionRJ45::ecrireLog(const QString &message, bool ecrireVal0, bool forcer) const
{
    try {
        // Each written line costs one ps process: a connection whose lines
        // are switched off must not reach getProcessMemoryUsage().
        if (forcer || ecrireLogActif) {
            const QString ligne = Horloge::maintenant().toString(Qt::TextDate) %
                                  QStringLiteral(" ") % message % QStringLiteral(" (VSZ = ") %
                                  getProcessMemoryUsage() % QStringLiteral(")");
            qDebug().noquote() << ligne;

            if (!fichierLog.isEmpty()) {
                QFile fichier(fichierLog);
                if (!fichier.open(QIODevice::Append)) {
                    const QString erreur = QStringLiteral("Impossible d'ouvrir le fichier ") %
                                           fichierLog %
                                           QStringLiteral(" pour écriture des logs : ") %
                                           QString::number(fichier.error());
                    qDebug().noquote() << erreur;
                } else {
                    if (fichier.write(ligne.toUtf8()) < 0) {
                        const QString erreur =
                            QStringLiteral("Impossible d'écrire dans le fichier de log ") %
                            fichierLog % QStringLiteral(" : ") % QString::number(fichier.error());
                        qDebug().noquote() << erreur;
                    }
                    fichier.write("\n");
                    fichier.close();
                }
            }
        }

        if (ecrireVal0)
            FichierVal0::ajouter(message, "\n");
    } catch (...) {
        qDebug().noquote() << QStringLiteral("Erreur d'écriture des logs...");
    }
}

QString QConnexionRJ45::getProcessMemoryUsage()
{
    const qint64 pid = QCoreApplication::applicationPid();

    // Looked up on PATH like any shell would: ps is a system tool, not one of
    // the service's own files, so the sandbox root does not apply to it.
    QProcess ps;
    ps.start(QStringLiteral("ps"), {QStringLiteral("-o"), QStringLiteral("pid,vsz")},
             QIODevice::ReadWrite);
    ps.waitForFinished(-1);
    const QStringList lignes = QString::fromLocal8Bit(ps.readAllStandardOutput())
                                   .split(QLatin1Char('\n'), Qt::KeepEmptyParts);

    // The PID must be followed by a space, so that 812 does not match 8120.
    const QString debut = QString::number(pid) + QLatin1Char(' ');
    for (const QString &ligne : lignes) {
        if (ligne.trimmed().startsWith(debut))
            return QStringLiteral("PID %1").arg(ligne);
    }

    const QString programme =
        QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
    return QStringLiteral("PID %1 non trouvé (%2)").arg(QString::number(pid), programme);
}
