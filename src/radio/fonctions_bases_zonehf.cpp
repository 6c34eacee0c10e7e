#include "radio/fonctions_bases.h"

#include "radio/le_tessalin.h"
#include "radio/zonepartagee.h"

#include <QDebug>

#include <cstdlib>
#include <cstring>
#include <mutex>

// The segments belong to the main application: they are only attached here,
// never created, and never locked (the main application does not lock them
// either, and a lock held across its writes would stall it).

const char *const fonctions_bases::CLE_ZONE_HF = "Zone_HF";

namespace {

const int TAILLE_MODULE = static_cast<int>(sizeof(gestion_radio));

// Within this process the reception thread writes records while the cycle
// writes rates and takes copies of the table: their accesses to the segment
// take turns here. Nothing is locked for the main application.
std::mutex mutexZoneHF;

// Slots that the attached segment really holds: the main application makes it
// at least 100 records long; a shorter one is never read past its end.
int nbSlots(const ZonePartagee &zone)
{
    return qMin(les_modules_radio::NB_MODULES, zone.size() / TAILLE_MODULE);
}

uchar *slot(ZonePartagee &zone, int i)
{
    return static_cast<uchar *>(zone.data()) + i * TAILLE_MODULE;
}

} // namespace

void fonctions_bases::setModule(gestion_radio gr)
{
    ZonePartagee zone(CLE_ZONE_HF);
    if (!zone.attach(QSharedMemory::ReadWrite)) {
        qDebug().noquote() << QString(
            QStringLiteral("Erreur zone.attach() sur fonctions_bases::setModule ") +
            gr.numeroTexte() + QStringLiteral(" : ") + zone.errorString());
        return;
    }
    const QByteArray numero = gr.numeroOctets();
    const QLatin1String cherche(numero.constData(), numero.size());
    const int n = nbSlots(zone);
    int libre = -1;
    std::lock_guard<std::mutex> verrou(mutexZoneHF);
    // A module keeps its slot, even when it was removed (present 0) or when
    // free slots lie before it; a new module takes the lowest free slot.
    for (int i = 0; i < n; ++i) {
        if (numeroEnPlace(slot(zone, i)) == cherche) {
            std::memcpy(slot(zone, i), &gr, sizeof gr);
            return;
        }
        if (libre < 0 && estLibreEnPlace(slot(zone, i)))
            libre = i;
    }
    // A full table drops the record: the main application frees slots.
    if (libre >= 0)
        std::memcpy(slot(zone, libre), &gr, sizeof gr);
}

void fonctions_bases::setModuleTaux(QString adresse, double taux_reception, double taux_utilisation)
{
    ZonePartagee zone(CLE_ZONE_HF);
    if (!zone.attach(QSharedMemory::ReadWrite)) {
        qDebug().noquote() << QString(
            QStringLiteral("Erreur zone.attach() sur fonctions_bases::setModuleTaux ") + adresse +
            QStringLiteral(" : ") + zone.errorString());
        return;
    }
    const int n = nbSlots(zone);
    std::lock_guard<std::mutex> verrou(mutexZoneHF);
    for (int i = 0; i < n; ++i) {
        if (numeroEnPlace(slot(zone, i)) != adresse)
            continue;
        // Only the two rates: the reception thread may be rewriting the rest
        // of the record at the same moment.
        ecrireTauxEnPlace(slot(zone, i), taux_reception, taux_utilisation);
        return;
    }
}

les_modules_radio *fonctions_bases::getLesModulesRadio()
{
    ZonePartagee zone(CLE_ZONE_HF);
    if (!zone.attach(QSharedMemory::ReadOnly))
        return nullptr;
    auto *copie = static_cast<les_modules_radio *>(std::malloc(sizeof(les_modules_radio)));
    if (copie) {
        std::lock_guard<std::mutex> verrou(mutexZoneHF);
        const size_t taille = static_cast<size_t>(nbSlots(zone) * TAILLE_MODULE);
        std::memcpy(copie, zone.constData(), taille);
        std::memset(reinterpret_cast<char *>(copie) + taille, 0,
                    sizeof(les_modules_radio) - taille);
    }
    zone.detach();
    return copie;
}

gestion_radio fonctions_bases::moduleNonTrouve()
{
    gestion_radio gr;
    // type, valeur and current_rank are the caller's to fill; zero until then.
    std::memset(&gr, 0, sizeof gr);
    gr.pile = -1.0;
    gr.rank = -1.0;
    gr.taux_reception = -1.0;
    gr.taux_utilisation = -1.0;
    gr.nb_sauts = -1;
    gr.dateheure_mesure = 0xFFFFFFFFu;
    gr.date_changement_pile = -1;
    return gr;
}

gestion_radio fonctions_bases::getModule(QString adresse)
{
    // The table is searched where it lies and only the record found is
    // copied: the module update asks at every frame, and a copy of the whole
    // table would cost more than the search.
    gestion_radio trouve = moduleNonTrouve();
    ZonePartagee zone(CLE_ZONE_HF);
    if (!zone.attach(QSharedMemory::ReadOnly))
        return trouve;
    const int n = nbSlots(zone);
    std::lock_guard<std::mutex> verrou(mutexZoneHF);
    for (int i = 0; i < n; ++i) {
        const uchar *record = slot(zone, i);
        if (record[offsetof(gestion_radio, present)] != 0 && numeroEnPlace(record) == adresse) {
            std::memcpy(&trouve, record, sizeof trouve);
            break;
        }
    }
    return trouve;
}

QList<La_config_voies> fonctions_bases::getLesVoiesRadio(QString adresse, QStringList types)
{
    // Channel record 0 is walked too, as the main application lays the zone out.
    static const int NB_RECORDS = 65;
    static const int LONGUEUR_ADRESSE_MODULE = 8;

    QList<La_config_voies> voies;
    ZonePartagee zone(La_config_voies::CLE);
    if (!zone.attach(QSharedMemory::ReadOnly))
        return voies;
    const int n = qMin(NB_RECORDS, zone.size() / La_config_voies::TAILLE);
    const auto *octets = static_cast<const uchar *>(zone.constData());
    for (int v = 0; v < n; ++v) {
        const La_config_voies voie = La_config_voies::depuis(octets, v);
        const qint32 type = voie.type();
        if (type < 0 || type >= types.size())
            continue;
        if (!types.at(type).startsWith(QLatin1String("RADIO")))
            continue;
        const QString adresseVoie = QString::fromLatin1(voie.adresse());
        if (adresseVoie.size() < LONGUEUR_ADRESSE_MODULE)
            continue;
        if (!adresse.isEmpty() && adresse != adresseVoie.left(LONGUEUR_ADRESSE_MODULE))
            continue;
        voies.append(voie);
    }
    return voies;
}

QString fonctions_bases::getAdresseBR()
{
    QString adresse;
    ZonePartagee zone(Le_Tessalin::CLE);
    if (zone.attach(QSharedMemory::ReadOnly) && zone.size() >= Le_Tessalin::TAILLE_MINIMUM)
        adresse = QString::fromLatin1(
            Le_Tessalin::adresse_br(static_cast<const uchar *>(zone.constData())));
    return adresse;
}
