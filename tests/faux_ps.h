#ifndef FAUX_PS_H
#define FAUX_PS_H

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QTemporaryDir>

// A `ps` put first in PATH for as long as it lives: it records each call and
// prints a table chosen by the test, where @PID@ stands for the PID of the
// process that called it (the test program itself).
class FauxPs
{
public:
    FauxPs()
        : ancienPath(qgetenv("PATH"))
    {
        const QString script = dossier.path() + QStringLiteral("/ps");
        QFile fichier(script);
        if (fichier.open(QIODevice::WriteOnly)) {
            fichier.write(QStringLiteral("#!/bin/sh\n"
                                         "echo \"$*\" >> '%1/appels.txt'\n"
                                         "[ -f '%1/sortie.txt' ] && sed \"s/@PID@/$PPID/g\" "
                                         "'%1/sortie.txt'\n"
                                         "exit 0\n")
                              .arg(dossier.path())
                              .toUtf8());
            fichier.close();
            fichier.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                   QFileDevice::ExeOwner);
        }
        definirSortie(QStringLiteral("  PID   VSZ\n@PID@ 777\n"));
        qputenv("PATH", dossier.path().toLocal8Bit() + ':' + ancienPath);
    }
    ~FauxPs() { qputenv("PATH", ancienPath); }
    FauxPs(const FauxPs &) = delete;
    FauxPs &operator=(const FauxPs &) = delete;

    bool estValide() const { return dossier.isValid(); }

    void definirSortie(const QString &sortie) const
    {
        QFile fichier(dossier.path() + QStringLiteral("/sortie.txt"));
        if (fichier.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fichier.write(sortie.toUtf8());
    }

    // The arguments of each call, one entry per call.
    QStringList appels() const
    {
        QFile fichier(dossier.path() + QStringLiteral("/appels.txt"));
        if (!fichier.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(fichier.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    void oublierAppels() const { QFile::remove(dossier.path() + QStringLiteral("/appels.txt")); }

    // The memory field as ecrireLog writes it with the default table.
    static QString memoireParDefaut()
    {
        return QStringLiteral("PID %1 777").arg(QCoreApplication::applicationPid());
    }

private:
    QTemporaryDir dossier;
    QByteArray ancienPath;
};

#endif // FAUX_PS_H
