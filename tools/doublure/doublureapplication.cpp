#include "doublureapplication.h"

#include "cleqt.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QUuid>
#include <QVariant>

#include <cstring>
#include <sys/shm.h>

namespace {
// The main application's records, byte for byte.
const QString ZONE_HF = QStringLiteral("Zone_HF");
const QString DEMANDE = QStringLiteral("Demande_enreg");
const QString VOIES = QStringLiteral("Config_Voies_iTessalin");
const QString TESSALIN = QStringLiteral("Config_iTessalin");
const QString ETAT = QStringLiteral("Etat_iTessalin");

const int TAILLE_MODULE = 216, NB_MODULES = 100;
const int TAILLE_DEMANDE = 82;
const int TAILLE_VOIE = 464, VOIE_TYPE = 32, VOIE_OFFSET = 96, VOIE_NUMERO = 112,
          VOIE_ADRESSE = 344;
const int TAILLE_TESSALIN = 1174, TESSALIN_NB_VOIES = 96, TESSALIN_ADRESSE_BR = 1124,
          LARGEUR_ADRESSE_BR = 50;
const int ETAT_MESURES = 8;

int offsetMesure(int voie)
{
    return ETAT_MESURES + 8 * voie;
}

template <typename T>
void ecrire(uchar *champ, T valeur)
{
    if (champ)
        std::memcpy(champ, &valeur, sizeof valeur);
}
template <typename T>
T lire(const uchar *champ)
{
    T valeur{};
    if (champ)
        std::memcpy(&valeur, champ, sizeof valeur);
    return valeur;
}
} // namespace

DoublureApplication::DoublureApplication(Maintien maintien)
    : mode(maintien)
{}

DoublureApplication::~DoublureApplication() = default;

QStringList DoublureApplication::cles()
{
    return {ZONE_HF, DEMANDE, VOIES, TESSALIN, ETAT};
}

int DoublureApplication::tailleZone(const QString &cle)
{
    if (cle == ZONE_HF)
        return NB_MODULES * TAILLE_MODULE;
    if (cle == DEMANDE)
        return TAILLE_DEMANDE;
    if (cle == VOIES)
        return (NB_VOIES + 1) * TAILLE_VOIE;
    if (cle == TESSALIN)
        return TAILLE_TESSALIN;
    if (cle == ETAT)
        return offsetMesure(NB_VOIES + 1);
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

bool DoublureApplication::creerZone(const QString &cle, QString *erreur, int taille, bool attachee)
{
    if (taille == 0)
        taille = tailleZone(cle);
    if (taille <= 0) {
        if (erreur)
            *erreur = QStringLiteral("unknown segment %1").arg(cle);
        return false;
    }
    zones.remove(cle);
    std::shared_ptr<ZoneTenue> zone = ZoneTenue::creer(mode, cle, taille, attachee, erreur);
    if (!zone)
        return false;
    if (zone->octets())
        std::memset(zone->octets(), 0, static_cast<size_t>(zone->tailleMappee()));
    zones.insert(cle, zone);
    return true;
}

bool DoublureApplication::attacherZone(const QString &cle, QString *erreur)
{
    const auto zone = zones.value(cle);
    if (!zone || !zone->attacher(erreur))
        return false;
    std::memset(zone->octets(), 0, static_cast<size_t>(zone->tailleMappee()));
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

bool DoublureApplication::zoneExiste(const QString &cle)
{
    const key_t clef = CleQt::cleSystemeV(cle);
    return clef != -1 && ::shmget(clef, 0, 0) >= 0;
}

uchar *DoublureApplication::donnees(const QString &cle)
{
    const auto zone = zones.value(cle);
    return zone ? zone->octets() : nullptr;
}

const uchar *DoublureApplication::donnees(const QString &cle) const
{
    const auto zone = zones.value(cle);
    return zone ? zone->octets() : nullptr;
}

int DoublureApplication::tailleReelle(const QString &cle) const
{
    const auto zone = zones.value(cle);
    return zone ? zone->taille() : 0;
}

int DoublureApplication::tailleMappee(const QString &cle) const
{
    const auto zone = zones.value(cle);
    return zone && zone->octets() ? zone->tailleMappee() : 0;
}

uchar *DoublureApplication::champ(const QString &cle, int offset, int largeur)
{
    uchar *zone = donnees(cle);
    return zone && offset >= 0 && offset + largeur <= tailleReelle(cle) ? zone + offset : nullptr;
}

const uchar *DoublureApplication::champ(const QString &cle, int offset, int largeur) const
{
    const uchar *zone = donnees(cle);
    return zone && offset >= 0 && offset + largeur <= tailleReelle(cle) ? zone + offset : nullptr;
}

void DoublureApplication::ecrireVoie(int voie, int type, const QByteArray &adresse, int numero,
                                     double offset)
{
    uchar *record = champ(VOIES, voie * TAILLE_VOIE, TAILLE_VOIE);
    if (!record || voie < 0)
        return;
    ecrire<qint32>(record + VOIE_TYPE, type);
    ecrire<double>(record + VOIE_OFFSET, offset);
    ecrire<qint32>(record + VOIE_NUMERO, numero);
    // NUL-terminated, and never past the record.
    const int largeur = TAILLE_VOIE - VOIE_ADRESSE;
    std::memset(record + VOIE_ADRESSE, 0, largeur);
    std::memcpy(record + VOIE_ADRESSE, adresse.constData(), qMin(adresse.size(), largeur - 1));
}

void DoublureApplication::effacerVoie(int voie)
{
    if (uchar *record = champ(VOIES, voie * TAILLE_VOIE, TAILLE_VOIE))
        std::memset(record, 0, TAILLE_VOIE);
}

void DoublureApplication::setNbVoiesPubliees(int nb)
{
    ecrire<qint32>(champ(TESSALIN, TESSALIN_NB_VOIES, 4), nb);
}

QByteArray DoublureApplication::adresseBR() const
{
    const auto *c =
        reinterpret_cast<const char *>(champ(TESSALIN, TESSALIN_ADRESSE_BR, LARGEUR_ADRESSE_BR));
    return c ? QByteArray(c, static_cast<int>(qstrnlen(c, LARGEUR_ADRESSE_BR))) : QByteArray();
}

void DoublureApplication::setAdresseBR(const QByteArray &adresse)
{
    if (uchar *c = champ(TESSALIN, TESSALIN_ADRESSE_BR, LARGEUR_ADRESSE_BR)) {
        std::memset(c, 0, LARGEUR_ADRESSE_BR);
        std::memcpy(c, adresse.constData(), qMin(adresse.size(), LARGEUR_ADRESSE_BR));
    }
}

double DoublureApplication::mesure(int voie) const
{
    return voie < 0 ? 0.0 : lire<double>(champ(ETAT, offsetMesure(voie), 8));
}

void DoublureApplication::setMesure(int voie, double valeur)
{
    if (voie >= 0)
        ecrire<double>(champ(ETAT, offsetMesure(voie), 8), valeur);
}

uchar DoublureApplication::octetDemande(int offset) const
{
    return lire<uchar>(champ(DEMANDE, offset, 1));
}

void DoublureApplication::setOctetDemande(int offset, uchar valeur)
{
    ecrire<uchar>(champ(DEMANDE, offset, 1), valeur);
}

QByteArray DoublureApplication::octetsZoneHF() const
{
    const uchar *zone = champ(ZONE_HF, 0, NB_MODULES * TAILLE_MODULE);
    return zone ? QByteArray(reinterpret_cast<const char *>(zone), NB_MODULES * TAILLE_MODULE)
                : QByteArray();
}

void DoublureApplication::ecrireModule(int slot, const gestion_radio &module)
{
    static_assert(sizeof module == TAILLE_MODULE, "a module record is 216 bytes");
    if (uchar *record = slot >= 0 ? champ(ZONE_HF, slot * TAILLE_MODULE, TAILLE_MODULE) : nullptr)
        std::memcpy(record, &module, sizeof module);
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
