#ifndef RENDUSVG_H
#define RENDUSVG_H

#include <QByteArray>
#include <QString>

// SVG drawing of a DOT graph by Graphviz's `dot`, when it is installed: the
// appliance does not need it, a technician's machine may have it.
namespace RenduSvg {

// Writes `fichier`; false with one explanatory line in `erreur` otherwise.
bool rendre(const QByteArray &dot, const QString &fichier, QString *erreur);

} // namespace RenduSvg

#endif // RENDUSVG_H
