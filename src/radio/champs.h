#ifndef CHAMPS_H
#define CHAMPS_H

#include <QByteArray>
#include <QString>

#include <cstring>

// Reading and writing the fixed-width fields of the records shared with the
// main application. A text field is never read past its width, whether or not
// the other process put a NUL in it, and numbers are copied byte-wise so that
// a field's alignment in the segment never matters.
namespace Champs {

inline QByteArray octetsTexte(const char *champ, int largeur)
{
    return QByteArray(champ, static_cast<int>(qstrnlen(champ, static_cast<uint>(largeur))));
}

inline QByteArray octetsTexte(const uchar *champ, int largeur)
{
    return octetsTexte(reinterpret_cast<const char *>(champ), largeur);
}

// Zero-fills the field, then copies at most `maximum` bytes of `octets`.
inline void ecrireTexte(char *champ, int largeur, const QByteArray &octets, int maximum)
{
    std::memset(champ, 0, static_cast<size_t>(largeur));
    std::memcpy(champ, octets.constData(), static_cast<size_t>(qMin(octets.size(), maximum)));
}

inline void ecrireTexte(uchar *champ, int largeur, const QByteArray &octets, int maximum)
{
    ecrireTexte(reinterpret_cast<char *>(champ), largeur, octets, maximum);
}

template <typename T>
T lireNombre(const uchar *octets)
{
    T valeur;
    std::memcpy(&valeur, octets, sizeof(T));
    return valeur;
}

template <typename T>
void ecrireNombre(uchar *octets, T valeur)
{
    std::memcpy(octets, &valeur, sizeof(T));
}

} // namespace Champs

#endif // CHAMPS_H
