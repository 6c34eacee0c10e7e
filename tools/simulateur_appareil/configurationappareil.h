#ifndef CONFIGURATIONAPPAREIL_H
#define CONFIGURATIONAPPAREIL_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// One channel as the simulated main application configures it.
struct VoieConfiguree
{
    int voie = 0;
    int type = 0;
    QByteArray adresse;
    int numero = 0;
    double offset = 0.0;
};

// What the appliance simulator publishes: the channel-type names of the
// device database, the channel records and the device record's fields.
// Read from a small line-oriented file; the same words drive it at run time.
class ConfigurationAppareil
{
public:
    static QStringList typesParDefaut();

    // Splits a line into words: blanks separate, "double quotes" keep blanks
    // (and "" is an empty word), '#' outside quotes starts a comment.
    static QStringList decouperMots(const QString &ligne, QString *erreur);

    bool lireFichier(const QString &chemin, QString *erreur);
    // One configuration line already split: type, voie, nb_voies, adresse_br.
    bool appliquer(const QStringList &mots, QString *erreur);
    // Parses "voie <v> <type> <adresse> <numero> <offset>" (offset optional).
    bool lireVoie(const QStringList &mots, VoieConfiguree *voie, QString *erreur) const;

    // A type given by its name (exact) or by its number.
    int typeDepuisTexte(const QString &texte, bool *ok) const;
    QString nomType(int type) const;
    QStringList typesEffectifs() const { return types.isEmpty() ? typesParDefaut() : types; }

    QStringList types;
    QMap<int, VoieConfiguree> voies;
    int nbVoies = 64;
    QByteArray adresseBR;
    bool adresseBRDonnee = false;
};

#endif // CONFIGURATIONAPPAREIL_H
