#include "daemonbanc.h"

#include "epreuves.h"
#include "reseau.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <arpa/inet.h>
#include <chrono>
#include <netinet/in.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

QByteArray lireFichier(const QString &chemin)
{
    QFile fichier(chemin);
    return fichier.open(QIODevice::ReadOnly) ? fichier.readAll() : QByteArray();
}

} // namespace

DaemonBanc::~DaemonBanc()
{
    arreter();
}

bool DaemonBanc::demarrer(const Lancement &lancement, QString *erreur)
{
    // The sandbox is made under TMPDIR.
    const QByteArray tmpdir = qgetenv("TMPDIR");
    if (lancement.baseEnMemoire)
        qputenv("TMPDIR", "/dev/shm");
    bac = std::make_unique<BacASable>();
    qputenv("TMPDIR", tmpdir);
    if (tmpdir.isNull())
        qunsetenv("TMPDIR");
    if (!bac->estValide()) {
        *erreur = QStringLiteral("cannot make the sandbox");
        return false;
    }
    port = BacASable::portLibre();
    bac->activer(port); // the double's segments go to the daemon's directory
    if (!Reseau::preparerAppareil(*bac, doublure, 1.5, erreur))
        return false;

    QProcessEnvironment env = bac->environnement(port);
    if (lancement.acceleration > 1) {
#ifdef BIBLIOTHEQUE_FAKETIME
        env.insert("LD_PRELOAD", BIBLIOTHEQUE_FAKETIME);
        env.insert("FAKETIME", QStringLiteral("+0 x%1").arg(lancement.acceleration));
        // Timers keep real time: the cycles still come once a period.
        env.insert("FAKETIME_DONT_FAKE_MONOTONIC", "1");
#else
        *erreur = QStringLiteral("libfaketime was not found at build time");
        return false;
#endif
    }
    processus.setProcessEnvironment(env);
    processus.setStandardOutputFile(QProcess::nullDevice());
    processus.setStandardErrorFile(QProcess::nullDevice());
    if (lancement.sous.isEmpty())
        processus.start(CHEMIN_DAEMON, lancement.arguments);
    else
        processus.start(lancement.sous.first(),
                        lancement.sous.mid(1) + QStringList(CHEMIN_DAEMON) + lancement.arguments);
    if (!processus.waitForStarted(5000)) {
        *erreur = processus.errorString();
        return false;
    }

    prise = ::socket(AF_INET6, SOCK_DGRAM, 0);
    sockaddr_in6 adresse{};
    adresse.sin6_family = AF_INET6;
    adresse.sin6_port = htons(port);
    adresse.sin6_addr = in6addr_loopback;
    if (prise < 0 ||
        ::connect(prise, reinterpret_cast<const sockaddr *>(&adresse), sizeof adresse) != 0) {
        *erreur = QStringLiteral("cannot make the sending socket");
        return false;
    }
    // The daemon restarts the tunnel (a 2 s pause) before it binds; then one
    // frame stored tells that the whole road works.
    const int patience = lancement.sous.isEmpty() ? 1 : 10;
    QElapsedTimer attente;
    attente.start();
    while (pertesNoyau() < 0 && enMarche() && attente.elapsed() < 20000 * patience && !interrompu())
        QThread::msleep(50);
    if (pertesNoyau() < 0 || !envoyerUne() || attendreLignes(1, 10000 * patience) < 1) {
        *erreur = QStringLiteral("the daemon did not store a first frame");
        return false;
    }
    return true;
}

void DaemonBanc::arreter()
{
    if (processus.state() != QProcess::NotRunning) {
        processus.terminate();
        if (!processus.waitForFinished(5000)) {
            processus.kill();
            processus.waitForFinished(5000);
        }
    }
    if (prise >= 0)
        ::close(prise);
    prise = -1;
}

qint64 compterLignes(const QString &fichier, const char *table)
{
    sqlite3 *base = nullptr;
    qint64 n = -1;
    const QByteArray sql = QByteArray("select count(*) from ") + table;
    if (sqlite3_open_v2(fichier.toUtf8().constData(), &base, SQLITE_OPEN_READONLY, nullptr) ==
        SQLITE_OK) {
        sqlite3_busy_timeout(base, 5000);
        sqlite3_stmt *requete = nullptr;
        if (sqlite3_prepare_v2(base, sql.constData(), -1, &requete, nullptr) == SQLITE_OK &&
            sqlite3_step(requete) == SQLITE_ROW)
            n = sqlite3_column_int64(requete, 0);
        sqlite3_finalize(requete);
    }
    sqlite3_close(base);
    return n;
}

qint64 DaemonBanc::lignes() const
{
    if (!bac)
        return -1;
    return compterLignes(bac->chemin("/var/base/hf.db"), "mesures_hf");
}

qint64 DaemonBanc::pertesNoyau() const
{
    // sl local_address remote_address st tx:rx tr:when retrnsmt uid timeout
    // inode ref pointer drops; the daemon alone binds this port.
    const QByteArray suffixe = ':' + QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    const QList<QByteArray> lignesUdp = lireFichier("/proc/net/udp6").split('\n');
    for (const QByteArray &ligne : lignesUdp) {
        const QList<QByteArray> champs = ligne.simplified().split(' ');
        if (champs.size() >= 13 && champs.at(1).endsWith(suffixe))
            return champs.at(12).toLongLong();
    }
    return -1;
}

qint64 DaemonBanc::statusKio(const QByteArray &champ) const
{
    const QList<QByteArray> lignesStatus =
        lireFichier(QStringLiteral("/proc/%1/status").arg(processus.processId())).split('\n');
    for (const QByteArray &ligne : lignesStatus) {
        if (ligne.startsWith(champ + ':'))
            return ligne.simplified().split(' ').value(1).toLongLong();
    }
    return -1;
}

double DaemonBanc::cpuSecondes() const
{
    // Fields 14 and 15 of /proc/<pid>/stat, counted after the command's
    // closing parenthesis, which may itself hold spaces.
    const QByteArray stat = lireFichier(QStringLiteral("/proc/%1/stat").arg(processus.processId()));
    const QList<QByteArray> champs = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (champs.size() < 13)
        return -1;
    const double tic = static_cast<double>(sysconf(_SC_CLK_TCK));
    return (champs.at(11).toDouble() + champs.at(12).toDouble()) / tic;
}

bool DaemonBanc::envoyerUne()
{
    const QByteArray trame = Reseau::trame(static_cast<int>(numero % Reseau::NB_MODULES), numero);
    ++numero;
    return ::send(prise, trame.constData(), static_cast<size_t>(trame.size()), 0) == trame.size();
}

qint64 DaemonBanc::envoyer(double parSeconde, double secondes)
{
    using namespace std::chrono;
    const qint64 total = qRound64(parSeconde * secondes);
    const auto debut = steady_clock::now();
    qint64 envoyees = 0;
    for (qint64 k = 0; k < total && !interrompu(); ++k) {
        std::this_thread::sleep_until(debut + duration<double>(k / parSeconde));
        envoyees += envoyerUne() ? 1 : 0;
    }
    return envoyees;
}

qint64 DaemonBanc::envoyerAuRythme(qint64 nombre, const std::function<QByteArray(qint64)> &trame,
                                   int enVol)
{
    const qint64 debut = lignes();
    qint64 stockees = debut;
    for (qint64 k = 0; k < nombre && !interrompu(); ++k) {
        // Counting the rows costs a look at the file: only when the margin is spent.
        while (debut + k - stockees >= enVol && enMarche() && !interrompu()) {
            QThread::msleep(2);
            stockees = lignes();
        }
        const QByteArray t = trame(k);
        ::send(prise, t.constData(), static_cast<size_t>(t.size()), 0);
    }
    return attendreLignes(debut + nombre) - debut;
}

qint64 DaemonBanc::rafale(int nombre)
{
    qint64 envoyees = 0;
    for (int k = 0; k < nombre; ++k)
        envoyees += envoyerUne() ? 1 : 0;
    return envoyees;
}

qint64 DaemonBanc::attendreLignes(qint64 attendues, int calmeMs) const
{
    qint64 n = lignes();
    QElapsedTimer calme;
    calme.start();
    while (n < attendues && calme.elapsed() < calmeMs && enMarche() && !interrompu()) {
        QThread::msleep(100);
        const qint64 suivant = lignes();
        if (suivant != n)
            calme.restart();
        n = suivant;
    }
    return n;
}
