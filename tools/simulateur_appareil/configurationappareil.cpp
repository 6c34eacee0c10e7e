#include "configurationappareil.h"

#include "doublureapplication.h"

#include <QFile>
#include <QTextStream>

QStringList ConfigurationAppareil::typesParDefaut()
{
    return {QStringLiteral("Aucun"),   QStringLiteral("PT100"), QStringLiteral("4-20mA"),
            QStringLiteral("Contact"), QStringLiteral("RADIO"), QStringLiteral("RADIO Contact")};
}

QStringList ConfigurationAppareil::decouperMots(const QString &ligne, QString *erreur)
{
    QStringList mots;
    QString mot;
    bool dansMot = false;
    bool entreGuillemets = false;
    for (const QChar c : ligne) {
        if (entreGuillemets) {
            if (c == QLatin1Char('"'))
                entreGuillemets = false;
            else
                mot += c;
            continue;
        }
        if (c == QLatin1Char('#'))
            break;
        if (c == QLatin1Char('"')) {
            entreGuillemets = true;
            dansMot = true;
        } else if (c.isSpace()) {
            if (dansMot)
                mots.append(mot);
            mot.clear();
            dansMot = false;
        } else {
            mot += c;
            dansMot = true;
        }
    }
    if (entreGuillemets) {
        if (erreur)
            *erreur = QStringLiteral("unterminated quote");
        return {};
    }
    if (dansMot)
        mots.append(mot);
    return mots;
}

bool ConfigurationAppareil::lireFichier(const QString &chemin, QString *erreur)
{
    QFile fichier(chemin);
    if (!fichier.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *erreur = QStringLiteral("%1: %2").arg(chemin, fichier.errorString());
        return false;
    }
    QTextStream flux(&fichier);
    flux.setCodec("UTF-8");
    // Types first: a channel line may name a type declared further down.
    QList<QPair<int, QStringList>> lignesVoies;
    int numeroLigne = 0;
    while (!flux.atEnd()) {
        const QString ligne = flux.readLine();
        ++numeroLigne;
        QString raison;
        const QStringList mots = decouperMots(ligne, &raison);
        if (!raison.isEmpty()) {
            *erreur = QStringLiteral("%1:%2: %3").arg(chemin).arg(numeroLigne).arg(raison);
            return false;
        }
        if (mots.isEmpty())
            continue;
        if (mots.first() == QLatin1String("voie")) {
            lignesVoies.append({numeroLigne, mots});
            continue;
        }
        if (!appliquer(mots, &raison)) {
            *erreur = QStringLiteral("%1:%2: %3").arg(chemin).arg(numeroLigne).arg(raison);
            return false;
        }
    }
    for (const auto &ligne : qAsConst(lignesVoies)) {
        QString raison;
        if (!appliquer(ligne.second, &raison)) {
            *erreur = QStringLiteral("%1:%2: %3").arg(chemin).arg(ligne.first).arg(raison);
            return false;
        }
    }
    return true;
}

bool ConfigurationAppareil::appliquer(const QStringList &mots, QString *erreur)
{
    const QString &cle = mots.first();
    if (cle == QLatin1String("type")) {
        if (mots.size() != 2) {
            *erreur = QStringLiteral("expected: type <name>");
            return false;
        }
        types.append(mots.at(1));
        return true;
    }
    if (cle == QLatin1String("voie")) {
        VoieConfiguree voie;
        if (!lireVoie(mots, &voie, erreur))
            return false;
        voies.insert(voie.voie, voie);
        return true;
    }
    if (cle == QLatin1String("nb_voies")) {
        bool ok = false;
        nbVoies = mots.size() == 2 ? mots.at(1).toInt(&ok) : 0;
        if (!ok)
            *erreur = QStringLiteral("expected: nb_voies <integer>");
        return ok;
    }
    if (cle == QLatin1String("adresse_br")) {
        if (mots.size() != 2) {
            *erreur = QStringLiteral("expected: adresse_br <text>");
            return false;
        }
        adresseBR = mots.at(1).toUtf8();
        adresseBRDonnee = true;
        return true;
    }
    *erreur = QStringLiteral("unknown keyword '%1'").arg(cle);
    return false;
}

bool ConfigurationAppareil::lireVoie(const QStringList &mots, VoieConfiguree *voie,
                                     QString *erreur) const
{
    if (mots.size() != 5 && mots.size() != 6) {
        *erreur = QStringLiteral("expected: voie <v> <type> <address> <numero> [<offset>]");
        return false;
    }
    bool ok = false;
    voie->voie = mots.at(1).toInt(&ok);
    if (!ok || voie->voie < 1 || voie->voie > DoublureApplication::NB_VOIES) {
        *erreur = QStringLiteral("channel must be 1 to %1").arg(DoublureApplication::NB_VOIES);
        return false;
    }
    voie->type = typeDepuisTexte(mots.at(2), &ok);
    if (!ok) {
        *erreur = QStringLiteral("unknown channel type '%1' (known: %2)")
                      .arg(mots.at(2), typesEffectifs().join(QStringLiteral(", ")));
        return false;
    }
    voie->adresse = mots.at(3).toUtf8();
    voie->numero = mots.at(4).toInt(&ok);
    if (!ok) {
        *erreur = QStringLiteral("numero must be an integer");
        return false;
    }
    voie->offset = 0.0;
    if (mots.size() == 6) {
        voie->offset = mots.at(5).toDouble(&ok);
        if (!ok) {
            *erreur = QStringLiteral("offset must be a number");
            return false;
        }
    }
    return true;
}

int ConfigurationAppareil::typeDepuisTexte(const QString &texte, bool *ok) const
{
    const int index = typesEffectifs().indexOf(texte);
    if (index >= 0) {
        *ok = true;
        return index;
    }
    // A bare number may name a type that the database does not hold, which
    // is how an unknown channel type is shown to the service.
    return texte.toInt(ok);
}

QString ConfigurationAppareil::nomType(int type) const
{
    const QStringList noms = typesEffectifs();
    return type >= 0 && type < noms.size() ? noms.at(type) : QStringLiteral("#%1").arg(type);
}
