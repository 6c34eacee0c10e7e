#include "actionsreseau.h"

#include "commun/environnement.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace ActionsReseau {

namespace {

const QString FICHIER = QStringLiteral("/var/log/acquisitionradio.log");
const QString UNITE = QStringLiteral("acquisitionradio.service");
// The supervision logs its reason just before the restart it runs.
constexpr qint64 ECART_RAISON = 5;

// The daemon's own stamp, in local time.
qint64 dateLigne(const QString &texte)
{
    const QDateTime d = QDateTime::fromString(texte, QStringLiteral("dd/MM/yyyy hh:mm:ss"));
    return d.isValid() ? d.toSecsSinceEpoch() : -1;
}

QStringList lignesDe(const QByteArray &octets)
{
    return QString::fromUtf8(octets).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void lireJournal(const QString &journalctl, Dernieres &d)
{
    d.source = QStringLiteral("journal (journalctl -u %1)").arg(UNITE);
    QProcess p;
    p.start(journalctl, {QStringLiteral("-u"), UNITE, QStringLiteral("-o"), QStringLiteral("cat"),
                         QStringLiteral("-q"), QStringLiteral("--no-pager"),
                         QStringLiteral("--grep=\\(serveur_udp\\) (restartTunslip6|RESTART "
                                        "TUNSLIP6|RESET BR|REPAIR BR)")});
    if (!p.waitForFinished(30000)) {
        p.kill();
        p.waitForFinished(5000);
        d.erreur = QStringLiteral("%1 did not answer").arg(journalctl);
        return;
    }
    const QByteArray erreur = p.readAllStandardError().trimmed();
    analyser(lignesDe(p.readAllStandardOutput()), d);
    // No match at all is a failure for journalctl, with nothing to say.
    if (p.exitStatus() != QProcess::NormalExit || (p.exitCode() != 0 && !erreur.isEmpty()))
        d.erreur = QStringLiteral("%1 failed: %2").arg(journalctl, QString::fromLocal8Bit(erreur));
}

void lireFichier(Dernieres &d)
{
    const QString chemin = Environnement::chemin(FICHIER);
    d.source = chemin;
    QStringList lignes;
    bool trouve = false;
    // The rotated copy first: it holds the older lines.
    for (const QString &f : {QString(chemin + QStringLiteral(".1")), chemin}) {
        QFile fichier(f);
        if (!fichier.exists())
            continue;
        if (!fichier.open(QIODevice::ReadOnly)) {
            d.erreur = QStringLiteral("%1 cannot be read: %2").arg(f, fichier.errorString());
            return;
        }
        trouve = true;
        lignes += lignesDe(fichier.readAll());
    }
    if (!trouve)
        d.erreur = QStringLiteral("%1 does not exist").arg(chemin);
    analyser(lignes, d);
}

} // namespace

void analyser(const QStringList &lignes, Dernieres &d)
{
    static const QRegularExpression motif(QStringLiteral(
        "(\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d:\\d\\d) \\(serveur_udp\\) "
        "(restartTunslip6\\(\\)$|RESTART TUNSLIP6 : |RESET BR : |REPAIR BR : )(.*)$"));
    Action raison;
    for (const QString &ligne : lignes) {
        const QRegularExpressionMatch m = motif.match(ligne);
        if (!m.hasMatch())
            continue;
        const Action action{dateLigne(m.captured(1)), m.captured(3)};
        const QString etiquette = m.captured(2);
        if (etiquette.startsWith(QLatin1String("restartTunslip6"))) {
            const bool supervision = raison.date >= 0 && action.date >= raison.date &&
                                     action.date - raison.date <= ECART_RAISON;
            d.restartTunnel = {action.date, supervision ? raison.texte
                                                        : QStringLiteral("at the daemon's start")};
            raison = Action();
        } else if (etiquette.startsWith(QLatin1String("RESTART"))) {
            raison = action;
        } else if (etiquette.startsWith(QLatin1String("RESET"))) {
            d.reset = action;
        } else {
            d.repair = action;
        }
    }
}

Dernieres lire()
{
    Dernieres d;
    if (Environnement::racine().isEmpty() &&
        QFileInfo(QStringLiteral("/run/systemd/system")).isDir()) {
        const QString journalctl = QStandardPaths::findExecutable(QStringLiteral("journalctl"));
        if (!journalctl.isEmpty()) {
            lireJournal(journalctl, d);
            return d;
        }
    }
    lireFichier(d);
    return d;
}

} // namespace ActionsReseau
