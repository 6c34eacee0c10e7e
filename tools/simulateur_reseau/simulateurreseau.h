#ifndef SIMULATEURRESEAU_H
#define SIMULATEURRESEAU_H

#include "modulesimule.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QUdpSocket>

class QTimer;

// Sends each module's frames on its own period to the service's UDP port,
// as the border router forwards them, keeping quiet during a module's
// silences.
class SimulateurReseau : public QObject
{
    Q_OBJECT
public:
    SimulateurReseau(const QList<ModuleSimule> &modules, const QHostAddress &adresse, quint16 port,
                     bool bavard, QObject *parent = nullptr);

    // Ranks left unset are 13 per level of the tree (a module whose parent
    // is not simulated hangs right under the border router).
    static void calculerRangs(QList<ModuleSimule> *modules);

    void demarrer();
    // One frame from every module that is not silent now, then done().
    void envoyerUneFois();

signals:
    void termine();

private:
    void envoyer(int index);
    void afficher(const QString &texte) const;

    QList<ModuleSimule> modules;
    QHostAddress adresse;
    quint16 port;
    bool bavard;
    QUdpSocket socket;
    QElapsedTimer depuis;
    QList<int> numerosTrame;
    QList<bool> silencieux;
};

#endif // SIMULATEURRESEAU_H
