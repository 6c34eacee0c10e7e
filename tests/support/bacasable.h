#ifndef BACASABLE_H
#define BACASABLE_H

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A sandbox for one test: a file root standing for "/" (with var/base,
// var/log, root, run, and stub init and border-router scripts that record
// each call), and a directory of its own for shared memory. activer() points this
// process at it; environnement() gives the same to a child daemon.
class BacASable
{
public:
    BacASable();
    ~BacASable();
    BacASable(const BacASable &) = delete;
    BacASable &operator=(const BacASable &) = delete;

    bool estValide() const { return dossier.isValid(); }
    QString racine() const;
    QString tmp() const;
    // A path under the root: chemin("/var/base/hf.db").
    QString chemin(const QString &absolu) const;

    // Sets ACQUISITIONRADIO_RACINE, ACQUISITIONRADIO_ADRESSE (::1),
    // ACQUISITIONRADIO_PORT and TMPDIR for this process; the destructor
    // restores what was there before.
    void activer(quint16 port = 0);
    QProcessEnvironment environnement(quint16 port) const;

    // The calls the stub scripts recorded, one line each ("tunslip6 stop",
    // "tunslip6 start", "reset_br.sh", "repair_br.sh").
    QStringList appels() const;
    // Replaces a stub script's body (after its recording line).
    void ecrireScript(const QString &absolu, const QString &corps) const;

    static quint16 portLibre();

private:
    QTemporaryDir dossier;
    QList<QPair<QByteArray, QByteArray>> sauvegarde;
    bool actif = false;
};

#endif // BACASABLE_H
