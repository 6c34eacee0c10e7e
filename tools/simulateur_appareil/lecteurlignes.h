#ifndef LECTEURLIGNES_H
#define LECTEURLIGNES_H

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;
class QTimer;

// Delivers the lines written to standard input, to a FIFO or appended to a
// plain file, without ever blocking the event loop. A FIFO is held open for
// writing as well, so that writers may come and go without an end of file; a
// plain file is followed like "tail -f".
class LecteurLignes : public QObject
{
    Q_OBJECT
public:
    explicit LecteurLignes(QObject *parent = nullptr);
    ~LecteurLignes() override;

    // Standard input: its end is reported once through fin().
    bool ouvrirEntreeStandard();
    // A FIFO or plain file; a path that does not exist is created as a FIFO
    // (and removed again by the destructor).
    bool ouvrirChemin(const QString &chemin, QString *erreur);

signals:
    void ligne(const QString &texte);
    void fin();

private:
    Q_DISABLE_COPY(LecteurLignes)

    void lireDescripteur();
    void lireFichier();
    void decouper();

    int descripteur = -1;
    bool possedeDescripteur = false;
    QSocketNotifier *notificateur = nullptr;
    QTimer *suivi = nullptr;
    QString cheminFichier;
    qint64 positionFichier = 0;
    QString fifoCreee;
    QByteArray tampon;
};

#endif // LECTEURLIGNES_H
