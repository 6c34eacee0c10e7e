#include "doublureapplication.h"

#include "radio/demande_enregistrement.h"
#include "radio/etat.h"
#include "radio/la_config_voies.h"
#include "radio/le_tessalin.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>
#include <QVariant>

#include <cstring>

namespace {
const QString ZONE_HF = QStringLiteral("Zone_HF");
const QString DEMANDE = QString::fromLatin1(Demande_enregistrement::CLE);
const QString VOIES = QString::fromLatin1(La_config_voies::CLE);
const QString TESSALIN = QString::fromLatin1(Le_Tessalin::CLE);
const QString ETAT = QString::fromLatin1(Etat::CLE);
} // namespace

DoublureApplication::DoublureApplication() = default;

DoublureApplication::~DoublureApplication() = default;

QStringList DoublureApplication::cles()
{
    return {ZONE_HF, DEMANDE, VOIES, TESSALIN, ETAT};
}

int DoublureApplication::tailleZone(const QString &cle)
{
    if (cle == ZONE_HF)
        return static_cast<int>(sizeof(les_modules_radio));
    if (cle == DEMANDE)
        return Demande_enregistrement::TAILLE_MINIMUM;
    if (cle == VOIES)
        return La_config_voies::tailleZone(NB_VOIES);
    if (cle == TESSALIN)
        return Le_Tessalin::TAILLE_MINIMUM;
    if (cle == ETAT)
        return Etat::tailleZone(NB_VOIES);
    return 0;
}

bool DoublureApplication::creerZones(QString *erreur)
{
    const QStringList toutes = cles();
    for (const QString &cle : toutes) {
        if (!creerZone(cle, erreur))
            return false;
    }
    return true;
}

bool DoublureApplication::creerZone(const QString &cle, QString *erreur)
{
    const int taille = tailleZone(cle);
    if (taille == 0) {
        if (erreur)
            *erreur = QStringLiteral("unknown segment %1").arg(cle);
        return false;
    }
    auto zone = std::make_shared<QSharedMemory>(cle);
    if (!zone->create(taille)) {
        // A segment left behind by a process that died: take it over.
        if (zone->error() != QSharedMemory::AlreadyExists || !zone->attach()) {
            if (erreur)
                *erreur = QStringLiteral("%1: %2").arg(cle, zone->errorString());
            return false;
        }
        // Too small to be ours: left by another program under a system key
        // that happens to be this one. Detaching removes it when nobody else
        // is attached, and ours can then be made.
        if (zone->size() < taille) {
            const int tailleTrouvee = zone->size();
            zone->detach();
            if (!zone->create(taille)) {
                if (erreur)
                    *erreur = QStringLiteral("%1: a segment of %2 bytes is in the way: %3")
                                  .arg(cle)
                                  .arg(tailleTrouvee)
                                  .arg(zone->errorString());
                return false;
            }
        }
    }
    std::memset(zone->data(), 0, static_cast<size_t>(taille));
    zones.insert(cle, zone);
    return true;
}

void DoublureApplication::detruireZone(const QString &cle)
{
    zones.remove(cle);
}

bool DoublureApplication::zonePresente(const QString &cle) const
{
    return zones.contains(cle);
}

uchar *DoublureApplication::donnees(const QString &cle)
{
    const auto zone = zones.value(cle);
    return zone ? static_cast<uchar *>(zone->data()) : nullptr;
}

const uchar *DoublureApplication::donnees(const QString &cle) const
{
    const auto zone = zones.value(cle);
    return zone ? static_cast<const uchar *>(zone->constData()) : nullptr;
}

void DoublureApplication::ecrireVoie(int voie, int type, const QByteArray &adresse, int numero,
                                     double offset)
{
    uchar *zone = donnees(VOIES);
    if (!zone || voie < 0 || voie > NB_VOIES)
        return;
    La_config_voies record = La_config_voies::depuis(zone, voie);
    record.setType(type);
    record.setAdresse(adresse);
    record.setNumero(numero);
    record.setOffset(offset);
    record.ecrireDans(zone, voie);
}

void DoublureApplication::effacerVoie(int voie)
{
    uchar *zone = donnees(VOIES);
    if (!zone || voie < 0 || voie > NB_VOIES)
        return;
    std::memset(zone + La_config_voies::debutVoie(voie), 0, La_config_voies::TAILLE);
}

void DoublureApplication::setNbVoiesPubliees(int nb)
{
    if (uchar *zone = donnees(TESSALIN))
        Le_Tessalin::setNb_voies(zone, nb);
}

QByteArray DoublureApplication::adresseBR() const
{
    const uchar *zone = donnees(TESSALIN);
    return zone ? Le_Tessalin::adresse_br(zone) : QByteArray();
}

void DoublureApplication::setAdresseBR(const QByteArray &adresse)
{
    if (uchar *zone = donnees(TESSALIN))
        Le_Tessalin::setAdresse_br(zone, adresse, Le_Tessalin::LARGEUR_ADRESSE_BR);
}

double DoublureApplication::mesure(int voie) const
{
    const uchar *zone = donnees(ETAT);
    return zone && voie >= 0 && voie <= NB_VOIES ? Etat::mesure(zone, voie) : 0.0;
}

void DoublureApplication::setMesure(int voie, double valeur)
{
    uchar *zone = donnees(ETAT);
    if (zone && voie >= 0 && voie <= NB_VOIES)
        Etat::setMesure(zone, voie, valeur);
}

uchar DoublureApplication::octetDemande(int offset) const
{
    const uchar *zone = donnees(DEMANDE);
    return zone && offset >= 0 && offset < Demande_enregistrement::TAILLE_MINIMUM ? zone[offset]
                                                                                  : 0;
}

void DoublureApplication::setOctetDemande(int offset, uchar valeur)
{
    uchar *zone = donnees(DEMANDE);
    if (zone && offset >= 0 && offset < Demande_enregistrement::TAILLE_MINIMUM)
        zone[offset] = valeur;
}

QByteArray DoublureApplication::octetsZoneHF() const
{
    const uchar *zone = donnees(ZONE_HF);
    return zone ? QByteArray(reinterpret_cast<const char *>(zone), sizeof(les_modules_radio))
                : QByteArray();
}

void DoublureApplication::ecrireModule(int slot, const gestion_radio &module)
{
    uchar *zone = donnees(ZONE_HF);
    if (zone && slot >= 0 && slot < les_modules_radio::NB_MODULES)
        std::memcpy(zone + slot * sizeof(gestion_radio), &module, sizeof(gestion_radio));
}

bool DoublureApplication::creerBaseAppareil(const QString &chemin, const QStringList &typesVoies,
                                            QString *erreur)
{
    QDir().mkpath(QFileInfo(chemin).absolutePath());
    const QString nom = QStringLiteral("doublure_") + QUuid::createUuid().toString();
    bool ok = true;
    {
        QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), nom);
        base.setDatabaseName(chemin);
        if (!base.open()) {
            ok = false;
            if (erreur)
                *erreur = base.lastError().text();
        } else {
            QSqlQuery requete(base);
            ok = requete.exec(QStringLiteral("DROP TABLE IF EXISTS config_type_voie")) &&
                 requete.exec(QStringLiteral(
                     "CREATE TABLE config_type_voie (numero integer, nom varchar(100))"));
            for (int i = 0; ok && i < typesVoies.size(); ++i) {
                requete.prepare(
                    QStringLiteral("INSERT INTO config_type_voie (numero, nom) VALUES (?, ?)"));
                requete.addBindValue(i);
                requete.addBindValue(typesVoies.at(i));
                ok = requete.exec();
            }
            if (!ok && erreur)
                *erreur = requete.lastError().text();
            base.close();
        }
    }
    QSqlDatabase::removeDatabase(nom);
    return ok;
}
