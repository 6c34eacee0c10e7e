#include "rejeu.h"

#include "epreuves.h"
#include "reseau.h"

#include <QDateTime>
#include <QElapsedTimer>

#include <sqlite3.h>
#include <time.h>

namespace {

const char *const SCHEMA[] = {
    "CREATE TABLE IF NOT EXISTS modules ( \n module varchar(10), \n parent varchar(10), \n type "
    "varchar(3), \n rank double, \n date_dernier_acces integer, \n x integer, \n y integer, \n nom "
    "varchar(100), \n batterie double, \n valeur double, \n date_changement_pile integer \n)",
    "CREATE UNIQUE INDEX module ON modules(module ASC)",
    "CREATE INDEX parent ON modules(parent ASC)",
    "CREATE TABLE IF NOT EXISTS mesures_hf ( \nmodule varchar(10), \ndateheure_mesure_hf integer, "
    "\nparent varchar(10), \nrank double, \nbatterie double, \nvaleur varchar(30), \nalim integer "
    "\n)",
    "CREATE INDEX dateheure ON mesures_hf(dateheure_mesure_hf ASC)",
    "CREATE INDEX module_dateheure ON mesures_hf(module ASC, dateheure_mesure_hf ASC)",
    "CREATE TABLE IF NOT EXISTS mesures_taux ( \nmodule varchar(10), \ndateheure_mesure_taux "
    "integer, \ntaux_reception double, \ntaux_utilisation double \n)"};

// Opened as the Qt driver opens a file: read-write, created when missing, a
// private cache, no mutex, a 5 s busy wait.
sqlite3 *ouvrir(const QByteArray &fichier)
{
    sqlite3 *base = nullptr;
    const int mode =
        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_PRIVATECACHE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(fichier.constData(), &base, mode, nullptr) != SQLITE_OK) {
        sqlite3_close(base);
        return nullptr;
    }
    sqlite3_busy_timeout(base, 5000);
    sqlite3_extended_result_codes(base, 1);
    return base;
}

// Runs one statement to its end; the result code of the step, or of the
// preparation when that failed (an update naming a missing column fails there).
int executer(sqlite3 *base, const QByteArray &sql, bool *ligne = nullptr)
{
    sqlite3_stmt *requete = nullptr;
    int code = sqlite3_prepare_v2(base, sql.constData(), -1, &requete, nullptr);
    if (code == SQLITE_OK) {
        while ((code = sqlite3_step(requete)) == SQLITE_ROW) {
            if (ligne)
                *ligne = true;
        }
    }
    sqlite3_finalize(requete);
    return code;
}

// One frame's work; an empty text when it went as in the daemon.
QString rejouerTrame(const QByteArray &chemin, quint32 n, quint32 date)
{
    const Reseau::Lecture l = Reseau::lecture(static_cast<int>(n % Reseau::NB_MODULES), n);
    const QByteArray rank = QByteArray::number(l.rank);
    const QByteArray secs = QByteArray::number(date + n / 1000);
    sqlite3 *base = ouvrir(chemin);
    if (!base)
        return QStringLiteral("cannot open %1").arg(QString::fromUtf8(chemin));
    bool connu = false;
    executer(base,
             "select x, y, nom from modules where module = '" + l.module +
                 "' order by date_dernier_acces desc limit 1",
             &connu);
    if (!connu) {
        executer(base, "insert into modules (module, parent, type, rank, date_dernier_acces, "
                       "batterie, valeur, date_changement_pile) values ('" +
                           l.module + "', '" + l.parent + "', 'A', " + rank + ", " + secs +
                           ", 3.6, '" + l.valeur + "', '-1')");
    } else {
        // Fails as in the daemon: the table has no `alim` column.
        executer(base, "update modules set date_dernier_acces=" + secs + ", parent='" + l.parent +
                           "', type='A', rank=" + rank + ", batterie=3.6, valeur='" + l.valeur +
                           "', alim='0' where module='" + l.module + "'");
    }
    const int code = executer(base, "insert into mesures_hf (module, dateheure_mesure_hf, parent, "
                                    "rank, batterie, valeur, alim) values ('" +
                                        l.module + "', " + secs + ", '" + l.parent + "', '" + rank +
                                        "', '3.6', '" + l.valeur + "', '0')");
    sqlite3_close(base);
    return code == SQLITE_DONE
               ? QString()
               : QStringLiteral("insert into mesures_hf: %1").arg(sqlite3_errstr(code));
}

double cpuFil()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

} // namespace

namespace {
// The schema, then a first round that inserts the modules: the daemon's
// steps find them known and update them.
QString creerEtPeupler(const QByteArray &chemin, quint32 date)
{
    if (sqlite3 *base = ouvrir(chemin)) {
        for (const char *sql : SCHEMA)
            executer(base, sql);
        sqlite3_close(base);
    }
    QString erreur;
    for (quint32 n = 0; n < Reseau::NB_MODULES && erreur.isEmpty(); ++n)
        erreur = rejouerTrame(chemin, n, date);
    return erreur;
}
} // namespace

QString Rejeu::preparer(const QString &fichier)
{
    return creerEtPeupler(fichier.toUtf8(),
                          static_cast<quint32>(QDateTime::currentSecsSinceEpoch()));
}

QString Rejeu::rejouer(const QString &fichier, int nombre)
{
    const QByteArray chemin = fichier.toUtf8();
    const quint32 date = static_cast<quint32>(QDateTime::currentSecsSinceEpoch());
    QString erreur;
    for (quint32 n = Reseau::NB_MODULES;
         n < static_cast<quint32>(Reseau::NB_MODULES + nombre) && erreur.isEmpty(); ++n)
        erreur = rejouerTrame(chemin, n, date);
    return erreur;
}

Rejeu::Resultat Rejeu::mesurer(const QString &fichier, double secondes)
{
    Resultat r;
    const QByteArray chemin = fichier.toUtf8();
    const quint32 date = static_cast<quint32>(QDateTime::currentSecsSinceEpoch());
    r.erreur = creerEtPeupler(chemin, date);
    quint32 n = Reseau::NB_MODULES;
    const double cpuAvant = cpuFil();
    QElapsedTimer chrono;
    chrono.start();
    for (; chrono.elapsed() < secondes * 1000 && r.erreur.isEmpty() && !interrompu(); ++n) {
        r.erreur = rejouerTrame(chemin, n, date);
        r.trames += r.erreur.isEmpty() ? 1 : 0;
    }
    r.secondes = chrono.nsecsElapsed() / 1e9;
    r.cpuSecondes = cpuFil() - cpuAvant;
    return r;
}
