#include "rapportzones.h"

#include "baselecture.h"
#include "lecturezones.h"
#include "miseenforme.h"

#include "commun/environnement.h"
#include "radio/demande_enregistrement.h"
#include "radio/etat.h"
#include "radio/fonctions_bases.h"
#include "radio/la_config_voies.h"
#include "radio/le_tessalin.h"

#include <QFile>
#include <QSqlQuery>
#include <QVariant>

using namespace MiseEnForme;

namespace {

const QString CHEMIN_ADRESSE_BR = QStringLiteral("/root/br_itessalin.txt");

const uchar *octets(const LectureZones::Copie &c)
{
    return reinterpret_cast<const uchar *>(c.octets.constData());
}

// The segment's bytes when it is there and at least `minimum` long; otherwise
// its absence is reported and its row in the table says so.
bool copieUtilisable(const QString &cle, int minimum, Rapport &r, Tableau &t,
                     LectureZones::Copie &c)
{
    c = LectureZones::copier(cle);
    if (c.presente() && c.octets.size() >= minimum)
        return true;
    r.absences.append(
        c.presente()
            ? QStringLiteral("segment %1 is too small (%2 bytes)").arg(cle).arg(c.octets.size())
            : LectureZones::absence(cle, c));
    t.ajouter({cle, QString(), QString(), QString(), QStringLiteral("(unavailable)")});
    return false;
}

// The channel-type names of the device database, read-only; empty with the
// reason in `note` when they cannot be read.
QStringList typesVoies(QString *note)
{
    BaseEnLecture base(Environnement::chemin(fonctions_bases::CHEMIN_BASE_APPAREIL));
    if (!base.estOuverte()) {
        *note = base.raison();
        return {};
    }
    QStringList noms;
    QSqlQuery q(base.base());
    if (!q.exec(QStringLiteral("select nom from config_type_voie order by numero"))) {
        *note = QStringLiteral("no channel types in %1").arg(base.base().databaseName());
        return {};
    }
    while (q.next())
        noms.append(q.value(0).toString());
    return noms;
}

// How the service treats a channel of this type.
QString genre(const QStringList &types, qint32 type)
{
    if (type < 0 || type >= types.size())
        return QString();
    const QString &nom = types.at(type);
    if (!nom.startsWith(QLatin1String("RADIO")))
        return QStringLiteral("not radio");
    return nom.toLower().contains(QLatin1String("contact")) ? QStringLiteral("radio contact")
                                                            : QStringLiteral("radio");
}

void demande(Rapport &r, Tableau &t)
{
    using namespace Demande_enregistrement;
    const QString cle = QLatin1String(CLE);
    LectureZones::Copie c;
    if (!copieUtilisable(cle, TAILLE_MINIMUM, r, t, c))
        return;
    const uchar *z = octets(c);
    t.ajouter({cle, QStringLiteral("config_modifiee"), QString::number(OFFSET_CONFIG_MODIFIEE),
               QString::number(config_modifiee(z)), QStringLiteral("new border-router address")});
    t.ajouter({cle, QStringLiteral("enregistrer_donnees_radio"),
               QString::number(OFFSET_ENREGISTRER_DONNEES_RADIO),
               QString::number(enregistrer_donnees_radio(z)), QStringLiteral("save request")});
    t.ajouter({cle, QStringLiteral("acquisitionRADIO_fonctionne"),
               QString::number(OFFSET_ACQUISITIONRADIO_FONCTIONNE),
               QString::number(acquisitionRADIO_fonctionne(z)), QStringLiteral("heartbeat")});
}

void tessalin(Rapport &r, Tableau &t)
{
    using namespace Le_Tessalin;
    const QString cle = QLatin1String(CLE);
    LectureZones::Copie c;
    if (!copieUtilisable(cle, TAILLE_MINIMUM, r, t, c))
        return;
    t.ajouter({cle, QStringLiteral("adresse_br"), QString::number(OFFSET_ADRESSE_BR),
               visible(adresse_br(octets(c))), QStringLiteral("border-router address")});
    t.ajouter({cle, QStringLiteral("nb_voies"), QString::number(OFFSET_NB_VOIES),
               QString::number(nb_voies(octets(c))), QStringLiteral("channel count")});
}

QString fichierAdresseBR()
{
    QFile fichier(Environnement::chemin(CHEMIN_ADRESSE_BR));
    if (!fichier.open(QIODevice::ReadOnly))
        return QStringLiteral("  %1: not readable\n").arg(fichier.fileName());
    return QStringLiteral("  %1: \"%2\"\n")
        .arg(fichier.fileName(), visible(fichier.readLine(200).trimmed()));
}

void voies(Rapport &r)
{
    const QString cle = QLatin1String(La_config_voies::CLE);
    const QString cleEtat = QLatin1String(Etat::CLE);
    r.texte += QStringLiteral("\nChannels (%1), values published (%2)\n").arg(cle, cleEtat);
    const LectureZones::Copie config = LectureZones::copier(cle);
    const LectureZones::Copie etat = LectureZones::copier(cleEtat);
    if (!config.presente()) {
        r.absent(LectureZones::absence(cle, config));
        return;
    }
    if (!etat.presente()) {
        r.absences.append(LectureZones::absence(cleEtat, etat));
        r.texte += QStringLiteral("  (published values unavailable)\n");
    }
    QString note;
    const QStringList types = typesVoies(&note);
    if (!note.isEmpty())
        r.texte += QStringLiteral("  (channel-type names unknown: %1)\n").arg(note);

    Tableau t({QStringLiteral("ch"), QStringLiteral("type"), QStringLiteral("type name"),
               QStringLiteral("kind"), QStringLiteral("module"), QStringLiteral("parameters"),
               QStringLiteral("numero"), QStringLiteral("offset"), QStringLiteral("published")},
              QStringLiteral("ddgggdddd"));
    const int nbVoies = qMin(NBVOIES_BASE, config.octets.size() / La_config_voies::TAILLE - 1);
    for (int v = 1; v <= nbVoies; ++v) {
        const La_config_voies voie = La_config_voies::depuis(octets(config), v);
        const QByteArray adresse = voie.adresse();
        if (voie.type() == 0 && adresse.isEmpty() && voie.numero() == 0 && voie.offset() == 0.0)
            continue;
        // Split as the service's registry does: the module address, then
        // the further parts, each introduced by ":".
        QList<QByteArray> parties = adresse.split(':');
        const QByteArray module = parties.size() < 2 ? adresse : parties.takeFirst();
        const QByteArray parametres = parties.size() < 2 ? QByteArray() : parties.join(':');
        QString publiee;
        if (etat.presente() && etat.octets.size() >= Etat::offsetMesure(v) + 8)
            publiee = nombre(Etat::mesure(octets(etat), v));
        t.ajouter(
            {QString::number(v), QString::number(voie.type()),
             voie.type() >= 0 && voie.type() < types.size() ? types.at(voie.type()) : QString(),
             genre(types, voie.type()), visible(module), visible(parametres),
             QString::number(voie.numero()), nombre(voie.offset()), publiee});
    }
    r.texte += t.estVide() ? QStringLiteral("  (no channel configured)\n") : t.texte();
}

} // namespace

namespace RapportZones {

Rapport rendre()
{
    Rapport r;
    r.texte = QStringLiteral("Main application's zones\n");
    Tableau t({QStringLiteral("zone"), QStringLiteral("field"), QStringLiteral("byte"),
               QStringLiteral("value"), QStringLiteral("meaning")},
              QStringLiteral("ggdgg"));
    demande(r, t);
    tessalin(r, t);
    if (!t.estVide())
        r.texte += t.texte();
    r.texte += fichierAdresseBR();
    voies(r);
    return r;
}

} // namespace RapportZones
