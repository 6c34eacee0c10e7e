#ifndef RAPPORT_H
#define RAPPORT_H

#include <QString>
#include <QStringList>

// What one section of the inspector prints: its text for standard output and
// one line per source it could not read (segment, database, socket), which
// go to standard error and make the exit status say so.
struct Rapport
{
    QString texte;
    QStringList absences;

    // The section says where its content is missing; the line itself goes
    // to standard error.
    void absent(const QString &ligne)
    {
        absences.append(ligne);
        texte += QStringLiteral("  (unavailable)\n");
    }

    void ajouter(const Rapport &autre)
    {
        texte += autre.texte;
        absences += autre.absences;
    }
};

#endif // RAPPORT_H
