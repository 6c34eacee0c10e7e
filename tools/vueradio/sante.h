#ifndef SANTE_H
#define SANTE_H

#include <QJsonObject>
#include <QList>
#include <QString>

// "vueradio sante": is the radio service healthy? One finding per concern,
// each ok, a warning or critical; the worst one is the exit status.
namespace Sante {

// Also the exit status of "vueradio sante".
enum class Niveau { Ok = 0, Avertissement = 1, Critique = 2 };

// A frame stored longer ago than this is a warning: past it the border-router
// supervision names silent modules in a repair.
constexpr qint64 SEUIL_TRAMES = 360;
// Free space left under /var/base for the radio database.
constexpr qint64 ESPACE_AVERTISSEMENT = 20 * 1024 * 1024;
constexpr qint64 ESPACE_CRITIQUE = 2 * 1024 * 1024;

struct Constat
{
    QString nom;
    Niveau niveau = Niveau::Ok;
    bool information = false; // shown for people, never changes the status
    QString texte;
    QJsonObject details; // the same for monitoring tools
};

struct Bilan
{
    quint32 maintenant = 0;
    quint16 port = 0;
    QList<Constat> constats;

    Niveau niveau() const;
};

Bilan examiner(quint32 maintenant, quint16 port);

QString texte(const Bilan &bilan);
QByteArray json(const Bilan &bilan);

} // namespace Sante

#endif // SANTE_H
