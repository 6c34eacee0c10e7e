#ifndef VUEZONE_H
#define VUEZONE_H

#include <QtGlobal>

// The bytes of an attached segment, as many as the segment really has. The
// main application may make a record shorter than this service knows it: a
// field that does not lie wholly within the segment is taken as absent.
struct VueZone
{
    uchar *octets = nullptr;
    int taille = 0;

    bool contient(int offset, int largeur) const
    {
        return octets && offset >= 0 && largeur >= 0 && offset <= taille - largeur;
    }
};

#endif // VUEZONE_H
