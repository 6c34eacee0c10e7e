#ifndef AIDE_PANNES_H
#define AIDE_PANNES_H

// The daemon as a child of a whole-process fault test, its log in a file.

#include "bacasable.h"

#include <QUdpSocket>
#include <QtTest>

#include <functional>

class DaemonSousTest
{
public:
    QProcess processus;
    QString journal;
    quint16 port = 0;

    static bool attendre(const std::function<bool()> &f) { return QTest::qWaitFor(f, 20000); }

    // In the sandbox's environment with `ajouts` over it, on a free port by default.
    void demarrer(const BacASable &bac, const QStringList &arguments,
                  const QProcessEnvironment &ajouts = {})
    {
        arreter();
        QProcessEnvironment env = bac.environnement(BacASable::portLibre());
        env.insert(ajouts);
        port = env.value("ACQUISITIONRADIO_PORT").toUShort();
        journal = bac.chemin("/daemon.txt");
        processus.setProcessEnvironment(env);
        processus.setStandardErrorFile(journal);
        processus.start(CHEMIN_DAEMON, arguments);
    }
    // Stopped gently: a killed daemon may leave a segment attached.
    void arreter()
    {
        processus.terminate();
        if (!processus.waitForFinished(10000))
            processus.kill();
        processus.waitForFinished();
    }
    bool enMarche() const { return processus.state() == QProcess::Running; }

    // From line `debut`, without the date, and the time and tag of the server's.
    QStringList messages(int debut = 0) const
    {
        QFile fichier(journal); // made by the start
        fichier.open(QIODevice::ReadOnly);
        static const QRegularExpression entete("^\\d\\d/\\d\\d/\\d{4} (\\S+ \\(serveur_udp\\) )?");
        QStringList textes = QString::fromUtf8(fichier.readAll()).split('\n').mid(debut);
        for (QString &ligne : textes)
            ligne.remove(entete);
        return textes;
    }
    int compter(const QString &t, int debut = 0) const { return messages(debut).filter(t).size(); }
    bool cycles(int n) // begun after the call
    {
        const int avant = compter("début recuperer_mesures");
        return attendre([&] { return compter("début recuperer_mesures") >= avant + n; });
    }
    void envoyer(const QByteArray &module, double valeur) const
    {
        QUdpSocket().writeDatagram("A" + module +
                                       ":br:20:" + QByteArray::number(qRound(valeur * 10)),
                                   QHostAddress(QHostAddress::LocalHostIPv6), port);
    }
};

// Preloads libfaketime, as its wrapper would outlive a stop; false without it.
inline bool prechargerFaketime(QProcessEnvironment &env)
{
    QProcess faketime;
    faketime.start("faketime", {"-m", "-f", "+0", "sh", "-c", "printf %s \"$LD_PRELOAD\""});
    if (!faketime.waitForFinished(10000) || faketime.exitCode() != 0)
        return false;
    env.insert("LD_PRELOAD", QString::fromLocal8Bit(faketime.readAllStandardOutput()));
    // An address-sanitized daemon would refuse a library loaded before its runtime.
    env.insert("ASAN_OPTIONS", qEnvironmentVariable("ASAN_OPTIONS") + ":verify_asan_link_order=0");
    return true;
}

#endif // AIDE_PANNES_H
