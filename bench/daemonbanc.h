#ifndef DAEMONBANC_H
#define DAEMONBANC_H

#include "bacasable.h"
#include "doublureapplication.h"

#include <QProcess>
#include <QStringList>

#include <functional>
#include <memory>

// Rows of a table of an SQLite file, or -1 when it cannot be read.
qint64 compterLignes(const QString &fichier, const char *table);

// The real daemon under load: started in a sandbox of its own beside the main
// application's double (64 radio channels on the bench's modules), fed real
// datagrams on ::1, and watched from outside: rows stored in `mesures_hf`,
// the kernel's drop counter of its socket, its resident memory.
class DaemonBanc
{
public:
    DaemonBanc() = default;
    ~DaemonBanc();
    DaemonBanc(const DaemonBanc &) = delete;
    DaemonBanc &operator=(const DaemonBanc &) = delete;

    struct Lancement
    {
        QStringList arguments;
        // Above 1, the daemon's clock runs that much faster (libfaketime), so
        // that its one-hour frame history rolls within minutes.
        double acceleration = 1;
        // The sandbox, database included, on tmpfs: for the measures that are
        // not about the disk and need many frames.
        bool baseEnMemoire = false;
        // A program the daemon runs under (valgrind and its options); it is
        // then given more time to start.
        QStringList sous;
    };
    bool demarrer(const Lancement &lancement, QString *erreur);
    // SIGTERM, then SIGKILL if it lingers; the double's segments go with this object.
    void arreter();
    bool enMarche() const { return processus.state() == QProcess::Running; }

    // Rows of `mesures_hf`, or -1 when the file cannot be read.
    qint64 lignes() const;
    // The drops column of /proc/net/udp6 for the daemon's socket, or -1.
    qint64 pertesNoyau() const;
    // A size of /proc/<pid>/status ("VmRSS", "RssAnon", "RssFile"...), in
    // KiB, or -1.
    qint64 statusKio(const QByteArray &champ = "VmRSS") const;
    // User and system CPU time the daemon has used, in seconds, or -1.
    double cpuSecondes() const;

    // Frames of the 100 modules in turn, paced evenly; returns how many left.
    qint64 envoyer(double parSeconde, double secondes);
    // `nombre` frames made by `trame` from their rank, as fast as the daemon
    // stores them: never more than `enVol` sent and not yet stored, so that
    // none is dropped. Returns how many were stored.
    qint64 envoyerAuRythme(qint64 nombre, const std::function<QByteArray(qint64)> &trame,
                           int enVol = 64);
    qint64 pid() const { return processus.processId(); }
    // `nombre` datagrams back to back.
    qint64 rafale(int nombre);
    // Waits until `attendues` rows are stored, or until no row has come for
    // `calmeMs`; returns the rows then stored.
    qint64 attendreLignes(qint64 attendues, int calmeMs = 2000) const;

private:
    bool envoyerUne();

    std::unique_ptr<BacASable> bac;
    DoublureApplication doublure;
    QProcess processus;
    quint16 port = 0;
    int prise = -1;
    quint32 numero = 0;
};

#endif // DAEMONBANC_H
