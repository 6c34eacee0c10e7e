#ifndef LECTUREZONES_H
#define LECTUREZONES_H

#include "radio/gestion_radio.h"

#include <QByteArray>
#include <QString>

#include <cstdlib>
#include <memory>

// Copies of the main application's segments, taken through a read-only
// attach: the inspector never writes a byte of them, and works on the copy
// so that a segment is held for as short a time as possible.
namespace LectureZones {

struct Copie
{
    QByteArray octets;
    QString erreur; // why the segment could not be attached; empty when it was
    bool introuvable = false;

    bool presente() const { return erreur.isEmpty(); }
};

Copie copier(const QString &cle);

struct Liberation
{
    void operator()(les_modules_radio *table) const { std::free(table); }
};
using TableModules = std::unique_ptr<les_modules_radio, Liberation>;

// The module table through the service's own read-only snapshot; null when
// "Zone_HF" cannot be attached.
TableModules tableModules();

// The one line that says why a segment cannot be read, and where it was
// looked for.
QString absence(const QString &cle, const Copie &copie);
QString absence(const QString &cle);

} // namespace LectureZones

#endif // LECTUREZONES_H
