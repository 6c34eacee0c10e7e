#include "tableauappareil.h"

#include "configurationappareil.h"
#include "doublureapplication.h"
#include "radio/demande_enregistrement.h"

#include <QDateTime>
#include <QFile>

#include <cstring>

namespace {
QString col(const QString &texte, int largeur)
{
    return texte.leftJustified(largeur, QLatin1Char(' '), true) + QLatin1Char(' ');
}

QString colD(const QString &texte, int largeur)
{
    return texte.rightJustified(largeur, QLatin1Char(' '), true) + QLatin1Char(' ');
}

QString taux(double t)
{
    return t < 0.0 ? QStringLiteral("-") : QString::number(t, 'f', 1);
}

QStringList dernieresLignes(const QString &chemin, int nombre)
{
    QFile fichier(chemin);
    if (!fichier.open(QIODevice::ReadOnly))
        return {QStringLiteral("(not readable yet)")};
    // Only the end matters; the files followed may grow without bound.
    const qint64 fenetre = 16384;
    if (fichier.size() > fenetre)
        fichier.seek(fichier.size() - fenetre);
    QStringList lignes = QString::fromUtf8(fichier.readAll()).split(QLatin1Char('\n'));
    while (!lignes.isEmpty() && lignes.last().trimmed().isEmpty())
        lignes.removeLast();
    return lignes.mid(qMax(0, lignes.size() - nombre));
}

void voies(QString &t, const DoublureApplication &d, const ConfigurationAppareil &c)
{
    t += QStringLiteral("Channels (Config_Voies_iTessalin -> Etat_iTessalin)\n");
    t += QStringLiteral("  ") + col(QStringLiteral("ch"), 3) + col(QStringLiteral("type"), 16) +
         col(QStringLiteral("address"), 18) + colD(QStringLiteral("numero"), 6) +
         colD(QStringLiteral("offset"), 8) + colD(QStringLiteral("published value"), 16) +
         QLatin1Char('\n');
    if (c.voies.isEmpty())
        t += QStringLiteral("  (no channel configured)\n");
    for (const VoieConfiguree &v : c.voies) {
        t += QStringLiteral("  ") + colD(QString::number(v.voie), 3) + col(c.nomType(v.type), 16) +
             col(TableauAppareil::visible(v.adresse), 18) + colD(QString::number(v.numero), 6) +
             colD(QString::number(v.offset, 'g', 6), 8) +
             colD(QString::number(d.mesure(v.voie), 'g', 8), 16) + QLatin1Char('\n');
    }
}

void modules(QString &t, const DoublureApplication &d, quint32 maintenant)
{
    const QByteArray octets = d.octetsZoneHF();
    t += QStringLiteral("Radio modules (Zone_HF)\n");
    t += QStringLiteral("  ") + colD(QStringLiteral("slot"), 4) +
         col(QStringLiteral("address"), 10) + col(QStringLiteral("parent"), 10) +
         col(QStringLiteral("on"), 2) + colD(QStringLiteral("hops"), 4) +
         colD(QStringLiteral("rank step"), 9) + colD(QStringLiteral("battery"), 7) +
         col(QStringLiteral("value"), 14) + colD(QStringLiteral("recept%"), 7) +
         colD(QStringLiteral("usage%"), 7) + colD(QStringLiteral("age s"), 6) + QLatin1Char('\n');
    if (octets.size() < static_cast<int>(sizeof(les_modules_radio)))
        return;
    int nombre = 0;
    for (int i = 0; i < les_modules_radio::NB_MODULES; ++i) {
        gestion_radio m;
        std::memcpy(&m, octets.constData() + i * static_cast<int>(sizeof(gestion_radio)), sizeof m);
        if (m.estLibre())
            continue;
        ++nombre;
        const bool dateConnue = m.dateheure_mesure != 0 && m.dateheure_mesure != 0xFFFFFFFFu;
        const qint64 age =
            static_cast<qint64>(maintenant) - static_cast<qint64>(m.dateheure_mesure);
        t += QStringLiteral("  ") + colD(QString::number(i), 4) +
             col(TableauAppareil::visible(m.numeroOctets()), 10) +
             col(TableauAppareil::visible(m.parentOctets()), 10) +
             col(m.present ? QStringLiteral("1") : QStringLiteral("0"), 2) +
             colD(QString::number(m.nb_sauts), 4) +
             colD(QString::number(m.current_rank, 'g', 4), 9) +
             colD(QString::number(m.pile, 'f', 1), 7) +
             col(TableauAppareil::visible(m.valeurOctets()), 14) + colD(taux(m.taux_reception), 7) +
             colD(taux(m.taux_utilisation), 7) +
             colD(dateConnue ? QString::number(age) : QStringLiteral("-"), 6) + QLatin1Char('\n');
    }
    if (nombre == 0)
        t += QStringLiteral("  (no module heard yet)\n");
}
} // namespace

QString TableauAppareil::visible(const QByteArray &octets)
{
    QString texte;
    for (const char c : octets) {
        const auto u = static_cast<uchar>(c);
        if (c == '\n')
            texte += QStringLiteral("\\n");
        else if (u < 0x20 || u == 0x7F)
            texte += QStringLiteral("\\x%1").arg(u, 2, 16, QLatin1Char('0'));
        else
            texte += QLatin1Char(c);
    }
    return texte;
}

QString TableauAppareil::rendre(const DoublureApplication &d, const ConfigurationAppareil &c,
                                const Contexte &x)
{
    using namespace Demande_enregistrement;
    QString t;
    t += QStringLiteral("Appliance simulator - %1 - root %2 - segments in %3\n")
             .arg(QDateTime::fromSecsSinceEpoch(x.maintenant).toString(QStringLiteral("hh:mm:ss")),
                  x.racine, x.repertoireSegments);
    QString battement;
    if (x.razBattement)
        battement = x.ageBattement < 0 ? QStringLiteral("never seen")
                                       : QStringLiteral("%1 s ago").arg(x.ageBattement);
    else
        battement = QString::number(d.octetDemande(OFFSET_ACQUISITIONRADIO_FONCTIONNE));
    t += QStringLiteral("Heartbeat (byte 81): %1   save request (byte 80): %2   "
                        "config_modifiee (byte 0): %3\n")
             .arg(battement)
             .arg(d.octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO))
             .arg(d.octetDemande(OFFSET_CONFIG_MODIFIEE));
    t += QStringLiteral("Border-router address published: \"%1\"\n\n").arg(visible(d.adresseBR()));
    voies(t, d, c);
    t += QLatin1Char('\n');
    modules(t, d, x.maintenant);
    for (const QString &chemin : x.fichiersSuivis) {
        t += QStringLiteral("\n%1\n").arg(chemin);
        const QStringList lignes = dernieresLignes(chemin, x.lignesSuivies);
        for (const QString &ligne : lignes)
            t += QStringLiteral("  ") + ligne.left(150) + QLatin1Char('\n');
    }
    if (!x.messages.isEmpty()) {
        t += QLatin1Char('\n');
        for (const QString &m : x.messages)
            t += QStringLiteral("> ") + m + QLatin1Char('\n');
    }
    t += QStringLiteral("\nCommands: enregistrer | voie <v> <type> <address> <numero> <offset> | "
                        "effacer <v> | retirer <module> | aide | quitter\n");
    return t;
}
