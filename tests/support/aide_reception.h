#ifndef AIDE_RECEPTION_H
#define AIDE_RECEPTION_H

// Checks shared by the reception tests: "Zone_HF" read at its raw byte
// offsets (as the main application reads it, not through the service's own
// record type) and the radio database read through a connection of the
// test's own.

#include <QByteArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QString>
#include <QStringList>
#include <QUuid>
#include <QVariant>

#include <cstring>

namespace AideReception {

const int TAILLE_SLOT = 216;
const int NB_SLOTS = 100;
const int OFFSET_PRESENT = 0;
const int OFFSET_NUMERO = 1;
const int OFFSET_PARENT = 51;
const int OFFSET_TYPE = 101;
const int OFFSET_VALEUR = 103;
const int OFFSET_PILE = 160;
const int OFFSET_RANK = 168;
const int OFFSET_CURRENT_RANK = 176;
const int OFFSET_NB_SAUTS = 184;
const int OFFSET_DATEHEURE = 208;
const int OFFSET_DATE_CHANGEMENT_PILE = 212;

// The bytes of a text field, up to its NUL or its width.
inline QByteArray texte(const QByteArray &zone, int slot, int offset, int largeur)
{
    const QByteArray champ = zone.mid(slot * TAILLE_SLOT + offset, largeur);
    const int fin = champ.indexOf('\0');
    return fin < 0 ? champ : champ.left(fin);
}

template <typename T>
T nombre(const QByteArray &zone, int slot, int offset)
{
    T valeur{};
    const int debut = slot * TAILLE_SLOT + offset;
    if (debut + static_cast<int>(sizeof(T)) <= zone.size())
        std::memcpy(&valeur, zone.constData() + debut, sizeof(T));
    return valeur;
}

// The slot holding this address (present or not), or -1.
inline int slotDe(const QByteArray &zone, const QByteArray &numero)
{
    for (int i = 0; i < NB_SLOTS && (i + 1) * TAILLE_SLOT <= zone.size(); ++i) {
        if (texte(zone, i, OFFSET_NUMERO, 50) == numero)
            return i;
    }
    return -1;
}

// Rows of a query on the database file, each row as a list of values; an
// empty list when the file or the table is not there yet.
inline QList<QVariantList> lignes(const QString &fichier, const QString &sql)
{
    QList<QVariantList> resultat;
    const QString nom = QStringLiteral("aide_") + QUuid::createUuid().toString();
    {
        QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), nom);
        base.setDatabaseName(fichier);
        if (base.open()) {
            QSqlQuery requete(base);
            if (requete.exec(sql)) {
                while (requete.next()) {
                    QVariantList ligne;
                    for (int c = 0; c < requete.record().count(); ++c)
                        ligne.append(requete.value(c));
                    resultat.append(ligne);
                }
            }
            requete.finish();
            base.close();
        }
    }
    QSqlDatabase::removeDatabase(nom);
    return resultat;
}

inline bool executer(const QString &fichier, const QString &sql)
{
    bool ok = false;
    const QString nom = QStringLiteral("aide_") + QUuid::createUuid().toString();
    {
        QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), nom);
        base.setDatabaseName(fichier);
        if (base.open()) {
            QSqlQuery requete(base);
            ok = requete.exec(sql);
            base.close();
        }
    }
    QSqlDatabase::removeDatabase(nom);
    return ok;
}

// Log lines ending with `fin` (the server prefixes each with its date).
inline QStringList finissantPar(const QStringList &toutes, const QString &fin)
{
    QStringList resultat;
    for (const QString &ligne : toutes) {
        if (ligne.endsWith(fin))
            resultat.append(ligne);
    }
    return resultat;
}

} // namespace AideReception

#endif // AIDE_RECEPTION_H
