#ifndef AIDE_RECEPTION_H
#define AIDE_RECEPTION_H

// "Zone_HF" read at raw byte offsets, and the radio database through a test connection.

#include <QtSql>

#include <cstring>

// Slot i starts at byte 216 x i; text fields are 50 bytes wide, but the type.
constexpr int NUMERO = 1, PARENT = 51, TYPE = 101, VALEUR = 103, RANK = 168, DATEHEURE = 208;

inline QByteArray texte(const QByteArray &zone, int slot, int offset)
{
    return zone.mid(slot * 216 + offset, offset == TYPE ? 2 : 50).constData(); // to its NUL
}

template <typename T>
T nombre(const QByteArray &zone, int slot, int offset)
{
    T valeur{};
    if (slot >= 0 && slot * 216 + offset + static_cast<int>(sizeof(T)) <= zone.size())
        std::memcpy(&valeur, zone.constData() + slot * 216 + offset, sizeof(T));
    return valeur;
}

// The first slot holding this address, or -1.
inline int slotDe(const QByteArray &zone, const QByteArray &numero)
{
    int i = 0;
    while (i < 100 && texte(zone, i, NUMERO) != numero)
        ++i;
    return i < 100 ? i : -1;
}

// present|numero|parent|type|valeur|pile|rank|current_rank|nb_sauts|date_changement_pile
inline QString enregistrement(const QByteArray &zone, int slot)
{
    QStringList champs{QString::number(nombre<char>(zone, slot, 0))};
    for (const int offset : {NUMERO, PARENT, TYPE, VALEUR})
        champs << QString::fromUtf8(texte(zone, slot, offset));
    for (const int offset : {160, RANK, 176})
        champs << QString::number(nombre<double>(zone, slot, offset));
    champs << QString::number(nombre<qint32>(zone, slot, 184))
           << QString::number(nombre<qint32>(zone, slot, 212));
    return champs.join('|');
}

// The rows a statement gives: values joined by '|', rows by '\n'.
inline QString lignes(const QString &fichier, const QString &sql)
{
    QStringList rangees;
    {
        QSqlDatabase base = QSqlDatabase::addDatabase("QSQLITE", "aide");
        base.setDatabaseName(fichier);
        base.open();
        QSqlQuery requete(sql, base);
        while (requete.next()) {
            rangees << QString();
            for (int c = 0; c < requete.record().count(); ++c)
                rangees.last() += (c ? "|" : "") + requete.value(c).toString();
        }
    }
    QSqlDatabase::removeDatabase("aide");
    return rangees.join('\n');
}

#endif // AIDE_RECEPTION_H
