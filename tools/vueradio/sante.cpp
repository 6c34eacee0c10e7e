#include "sante.h"

#include "actionsreseau.h"
#include "baselecture.h"
#include "compteurudp.h"
#include "lecturezones.h"
#include "miseenforme.h"

#include "app/verrouinstance.h"
#include "commun/environnement.h"
#include "radio/demande_enregistrement.h"
#include "radio/etat.h"
#include "radio/fonctions_bases.h"
#include "radio/la_config_voies.h"
#include "radio/le_tessalin.h"
#include "udp/qserveurudp.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QSqlQuery>
#include <QVariant>

#include <cerrno>
#include <cstring>
#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace Sante {

namespace {

Constat constat(const QString &nom, Niveau niveau, const QString &texte,
                const QJsonObject &details = {})
{
    Constat c;
    c.nom = nom;
    c.niveau = niveau;
    c.texte = texte;
    c.details = details;
    return c;
}

Constat information(const QString &nom, const QString &texte, const QJsonObject &details = {})
{
    Constat c = constat(nom, Niveau::Ok, texte, details);
    c.information = true;
    return c;
}

QString duree(qint64 secondes)
{
    if (secondes < 0)
        return QStringLiteral("in the future");
    if (secondes < 120)
        return QStringLiteral("%1 s").arg(secondes);
    if (secondes < 2 * 3600)
        return QStringLiteral("%1 min").arg(secondes / 60);
    if (secondes < 2 * 86400)
        return QStringLiteral("%1 h %2 min").arg(secondes / 3600).arg(secondes % 3600 / 60);
    return QStringLiteral("%1 d %2 h").arg(secondes / 86400).arg(secondes % 86400 / 3600);
}

QString taille(qint64 octets)
{
    if (octets < 1024 * 1024)
        return QStringLiteral("%1 KiB").arg(octets / 1024);
    if (octets < 1024LL * 1024 * 1024)
        return QStringLiteral("%1 MiB").arg(octets / (1024 * 1024));
    return QStringLiteral("%1 GiB").arg(static_cast<double>(octets) / (1024.0 * 1024 * 1024), 0,
                                        'f', 1);
}

QString erreurSysteme(int erreur)
{
    return QStringLiteral("%1 (errno %2)")
        .arg(QString::fromLocal8Bit(std::strerror(erreur)))
        .arg(erreur);
}

enum class Tenu { Oui, Non, Inconnu };

// From the kernel's table of locks: trying the lock instead could turn away a
// daemon starting at that very moment.
Tenu verrouTenu(const QString &chemin)
{
    struct stat etat;
    QFile locks(QStringLiteral("/proc/locks"));
    if (::stat(QFile::encodeName(chemin).constData(), &etat) != 0 ||
        !locks.open(QIODevice::ReadOnly))
        return Tenu::Inconnu;
    // "1: FLOCK  ADVISORY  WRITE 1234 fe:00:11001937 0 EOF"; waiters show "->" first.
    const QByteArray cible = QStringLiteral("%1:%2:%3")
                                 .arg(major(etat.st_dev), 2, 16, QLatin1Char('0'))
                                 .arg(minor(etat.st_dev), 2, 16, QLatin1Char('0'))
                                 .arg(static_cast<qulonglong>(etat.st_ino))
                                 .toLatin1();
    for (const QByteArray &ligne : locks.readAll().split('\n')) {
        const QList<QByteArray> champs = ligne.simplified().split(' ');
        if (champs.size() >= 6 && champs.at(1) == "FLOCK" && champs.at(5) == cible)
            return Tenu::Oui;
    }
    return Tenu::Non;
}

// When the table of locks cannot be read: a live process of that name.
bool processusDaemon(qint64 pid)
{
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    // The kernel keeps the first 15 characters of the name.
    return pid > 0 && comm.open(QIODevice::ReadOnly) &&
           QStringLiteral("acquisitionradio")
               .startsWith(QString::fromUtf8(comm.readAll().trimmed()));
}

Constat daemon(quint32 maintenant)
{
    const QString chemin = Environnement::chemin(QString::fromLatin1(VerrouInstance::CHEMIN));
    QJsonObject d{{QStringLiteral("lock_file"), chemin}, {QStringLiteral("running"), false}};
    QFile fichier(chemin);
    if (!fichier.open(QIODevice::ReadOnly))
        return constat(
            QStringLiteral("daemon"), Niveau::Critique,
            QStringLiteral("not running: no lock file %1 (%2)").arg(chemin, fichier.errorString()),
            d);
    const VerrouInstance::Contenu c = VerrouInstance::Contenu::depuisOctets(fichier.read(4096));
    const Tenu tenu = verrouTenu(chemin);
    const bool enMarche = tenu == Tenu::Oui || (tenu == Tenu::Inconnu && processusDaemon(c.pid));
    d.insert(QStringLiteral("running"), enMarche);
    d.insert(QStringLiteral("pid"), c.pid);
    d.insert(QStringLiteral("since"), c.depuis);
    const QString depuis =
        QStringLiteral("%1 (%2 ago)")
            .arg(MiseEnForme::date(c.depuis), duree(static_cast<qint64>(maintenant) - c.depuis));
    if (enMarche)
        return constat(QStringLiteral("daemon"), Niveau::Ok,
                       QStringLiteral("running, pid %1, since %2").arg(c.pid).arg(depuis), d);
    return constat(QStringLiteral("daemon"), Niveau::Critique,
                   QStringLiteral("not running (the lock file %1 was left by pid %2, started %3)")
                       .arg(chemin)
                       .arg(c.pid)
                       .arg(depuis),
                   d);
}

Constat socketUdp(quint16 port)
{
    QJsonObject d{{QStringLiteral("port"), port}, {QStringLiteral("bound"), false}};
    QFile fichier(CompteurUdp::FICHIER);
    if (!fichier.open(QIODevice::ReadOnly))
        return constat(QStringLiteral("udp"), Niveau::Critique,
                       QStringLiteral("%1 cannot be read: %2")
                           .arg(CompteurUdp::FICHIER, fichier.errorString()),
                       d);
    const QList<CompteurUdp::Socket> sockets = CompteurUdp::lire(fichier.readAll(), port);
    if (sockets.isEmpty())
        return constat(QStringLiteral("udp"), Niveau::Critique,
                       QStringLiteral("no UDP socket bound to port %1").arg(port), d);
    quint64 pertes = 0;
    QStringList adresses;
    for (const CompteurUdp::Socket &s : sockets) {
        pertes += s.pertes;
        adresses.append(QStringLiteral("[%1]:%2").arg(s.adresse).arg(port));
    }
    d.insert(QStringLiteral("bound"), true);
    d.insert(QStringLiteral("addresses"), QJsonArray::fromStringList(adresses));
    d.insert(QStringLiteral("drops"), static_cast<qint64>(pertes));
    if (pertes > 0)
        return constat(QStringLiteral("udp"), Niveau::Avertissement,
                       QStringLiteral("bound to %1; the kernel dropped %2 datagrams since it was "
                                      "opened (the reception fell behind)")
                           .arg(adresses.join(QLatin1String(", ")))
                           .arg(pertes),
                       d);
    return constat(
        QStringLiteral("udp"), Niveau::Ok,
        QStringLiteral("bound to %1, no datagram dropped").arg(adresses.join(QLatin1String(", "))),
        d);
}

Constat trames(quint32 maintenant)
{
    QJsonObject d{{QStringLiteral("limit_s"), SEUIL_TRAMES}};
    BaseEnLecture base(Environnement::chemin(QServeurUdp::CHEMIN_FICHIER_DB));
    if (!base.estOuverte())
        return constat(QStringLiteral("frames"), Niveau::Critique, base.raison(), d);
    // The last row stored, by the table's own order of insertion: a clock set
    // back leaves rows dated ahead of the newest ones.
    QSqlQuery q(base.base());
    if (!q.exec(QStringLiteral("select module, dateheure_mesure_hf from mesures_hf order by rowid "
                               "desc limit 1")))
        return constat(QStringLiteral("frames"), Niveau::Critique,
                       QStringLiteral("no table mesures_hf in %1").arg(base.base().databaseName()),
                       d);
    if (!q.next())
        return constat(QStringLiteral("frames"), Niveau::Avertissement,
                       QStringLiteral("no frame stored yet"), d);
    const QString module = MiseEnForme::visible(q.value(0).toString().toUtf8());
    const qint64 date = q.value(1).toLongLong();
    const qint64 age = static_cast<qint64>(maintenant) - date;
    d.insert(QStringLiteral("newest"), date);
    d.insert(QStringLiteral("age_s"), age);
    d.insert(QStringLiteral("module"), module);
    const QString texte = QStringLiteral("newest frame stored %1 ago (%2, module %3)")
                              .arg(duree(age), MiseEnForme::date(date), module);
    if (age > SEUIL_TRAMES)
        return constat(QStringLiteral("frames"), Niveau::Avertissement,
                       texte + QStringLiteral(", more than %1 s").arg(SEUIL_TRAMES), d);
    return constat(QStringLiteral("frames"), Niveau::Ok, texte, d);
}

Constat demande()
{
    using namespace Demande_enregistrement;
    const LectureZones::Copie c = LectureZones::copier(QLatin1String(CLE));
    if (!c.presente() || c.octets.size() < TAILLE_MINIMUM)
        return information(QStringLiteral("heartbeat"),
                           QStringLiteral("%1 cannot be read (see segments)").arg(CLE));
    const auto *z = reinterpret_cast<const uchar *>(c.octets.constData());
    const int battement = acquisitionRADIO_fonctionne(z);
    const int enregistrement = enregistrer_donnees_radio(z);
    return information(QStringLiteral("heartbeat"),
                       QStringLiteral("heartbeat %1 (%2 byte %3), save request %4 (byte %5), as "
                                      "last seen")
                           .arg(battement)
                           .arg(CLE)
                           .arg(OFFSET_ACQUISITIONRADIO_FONCTIONNE)
                           .arg(enregistrement)
                           .arg(OFFSET_ENREGISTRER_DONNEES_RADIO),
                       {{QStringLiteral("heartbeat"), battement},
                        {QStringLiteral("save_request"), enregistrement}});
}

Constat zones()
{
    const QList<QPair<QString, int>> minimums = {
        {QLatin1String(fonctions_bases::CLE_ZONE_HF), static_cast<int>(sizeof(les_modules_radio))},
        {QLatin1String(Demande_enregistrement::CLE), Demande_enregistrement::TAILLE_MINIMUM},
        {QLatin1String(La_config_voies::CLE), La_config_voies::tailleZone(NBVOIES_BASE)},
        {QLatin1String(Le_Tessalin::CLE), Le_Tessalin::TAILLE_MINIMUM},
        {QLatin1String(Etat::CLE), Etat::tailleZone(NBVOIES_BASE)}};
    QJsonObject d;
    QStringList tailles, problemes;
    for (const auto &m : minimums) {
        const LectureZones::Copie c = LectureZones::copier(m.first);
        const int octets = c.presente() ? c.octets.size() : -1;
        d.insert(m.first, QJsonObject{{QStringLiteral("present"), c.presente()},
                                      {QStringLiteral("size"), octets},
                                      {QStringLiteral("minimum"), m.second}});
        if (c.introuvable)
            problemes.append(QStringLiteral("%1 missing").arg(m.first));
        else if (!c.presente())
            problemes.append(QStringLiteral("%1 not attachable: %2").arg(m.first, c.erreur));
        else if (octets < m.second)
            problemes.append(QStringLiteral("%1 is %2 bytes, less than %3")
                                 .arg(m.first)
                                 .arg(octets)
                                 .arg(m.second));
        else
            tailles.append(QStringLiteral("%1 %2").arg(m.first).arg(octets));
    }
    if (!problemes.isEmpty())
        return constat(QStringLiteral("segments"), Niveau::Critique,
                       problemes.join(QLatin1String(", ")) +
                           QStringLiteral(" (looked up under TMPDIR %1, which must be the main "
                                          "application's; it creates them)")
                               .arg(QDir::tempPath()),
                       d);
    return constat(QStringLiteral("segments"), Niveau::Ok,
                   tailles.join(QLatin1String(", ")) +
                       QStringLiteral(" bytes: all at or above their minimum sizes"),
                   d);
}

Constat scripts()
{
    QJsonObject d;
    QStringList absents, prets;
    for (const char *commande :
         {"/etc/init.d/tunslip6", "/etc/scripts/reset_br.sh", "/etc/scripts/repair_br.sh"}) {
        const QString chemin = Environnement::chemin(QString::fromLatin1(commande));
        const QByteArray nom = QFile::encodeName(chemin);
        const bool present = QFileInfo(chemin).isFile();
        const bool executable = present && ::access(nom.constData(), X_OK) == 0;
        d.insert(chemin, QJsonObject{{QStringLiteral("present"), present},
                                     {QStringLiteral("executable"), executable}});
        if (executable)
            prets.append(chemin);
        else
            absents.append(present ? chemin + QStringLiteral(" is not executable")
                                   : chemin + QStringLiteral(" is missing"));
    }
    if (!absents.isEmpty())
        return constat(QStringLiteral("scripts"), Niveau::Avertissement,
                       absents.join(QLatin1String("; ")) +
                           QStringLiteral(" (the supervision cannot restart the tunnel or the "
                                          "border router)"),
                       d);
    return constat(QStringLiteral("scripts"), Niveau::Ok,
                   prets.join(QLatin1String(", ")) + QStringLiteral(": present and executable"), d);
}

Constat base()
{
    const QString chemin = Environnement::chemin(QServeurUdp::CHEMIN_FICHIER_DB);
    const QString dossier = QFileInfo(chemin).path();
    QJsonObject d{{QStringLiteral("path"), chemin}};
    struct statvfs fs;
    if (::statvfs(QFile::encodeName(dossier).constData(), &fs) != 0)
        return constat(
            QStringLiteral("database"), Niveau::Critique,
            QStringLiteral("%1 cannot be examined: %2").arg(dossier, erreurSysteme(errno)), d);
    const qint64 libre = static_cast<qint64>(fs.f_bavail) * static_cast<qint64>(fs.f_frsize);
    d.insert(QStringLiteral("free_bytes"), libre);
    const QString place = QStringLiteral("%1 free under %2").arg(taille(libre), dossier);
    if (!QFileInfo(chemin).isFile())
        return constat(QStringLiteral("database"), Niveau::Critique,
                       QStringLiteral("%1 does not exist (the service creates it when it "
                                      "starts); %2")
                           .arg(chemin, place),
                       d);
    // SQLite writes its journal beside the database.
    for (const QString &f : {chemin, dossier}) {
        if (::access(QFile::encodeName(f).constData(), W_OK) != 0)
            return constat(
                QStringLiteral("database"), Niveau::Critique,
                QStringLiteral("%1 is not writable: %2; %3").arg(f, erreurSysteme(errno), place),
                d);
    }
    d.insert(QStringLiteral("writable"), true);
    const QString texte = QStringLiteral("%1 writable; %2").arg(chemin, place);
    if (libre < ESPACE_CRITIQUE)
        return constat(QStringLiteral("database"), Niveau::Critique,
                       texte + QStringLiteral(", less than %1").arg(taille(ESPACE_CRITIQUE)), d);
    if (libre < ESPACE_AVERTISSEMENT)
        return constat(QStringLiteral("database"), Niveau::Avertissement,
                       texte + QStringLiteral(", less than %1").arg(taille(ESPACE_AVERTISSEMENT)),
                       d);
    return constat(QStringLiteral("database"), Niveau::Ok, texte, d);
}

Constat action(const QString &nom, const ActionsReseau::Action &a,
               const ActionsReseau::Dernieres &toutes, quint32 maintenant)
{
    QJsonObject d{{QStringLiteral("source"), toutes.source}};
    if (!toutes.erreur.isEmpty())
        d.insert(QStringLiteral("error"), toutes.erreur);
    if (a.date < 0)
        return information(nom,
                           toutes.erreur.isEmpty()
                               ? QStringLiteral("none found in %1").arg(toutes.source)
                               : toutes.erreur,
                           d);
    d.insert(QStringLiteral("time"), a.date);
    d.insert(QStringLiteral("line"), a.texte);
    return information(nom,
                       QStringLiteral("%1 (%2 ago): %3")
                           .arg(MiseEnForme::date(a.date),
                                duree(static_cast<qint64>(maintenant) - a.date), a.texte),
                       d);
}

} // namespace

Niveau Bilan::niveau() const
{
    Niveau pire = Niveau::Ok;
    for (const Constat &c : constats) {
        if (!c.information && c.niveau > pire)
            pire = c.niveau;
    }
    return pire;
}

Bilan examiner(quint32 maintenant, quint16 port)
{
    Bilan b;
    b.maintenant = maintenant;
    b.port = port;
    b.constats = {daemon(maintenant), socketUdp(port), trames(maintenant), demande(), zones(),
                  scripts(),          base()};
    const ActionsReseau::Dernieres actions = ActionsReseau::lire();
    b.constats.append(
        action(QStringLiteral("tunnel_restart"), actions.restartTunnel, actions, maintenant));
    b.constats.append(action(QStringLiteral("reset"), actions.reset, actions, maintenant));
    b.constats.append(action(QStringLiteral("repair"), actions.repair, actions, maintenant));
    return b;
}

} // namespace Sante
