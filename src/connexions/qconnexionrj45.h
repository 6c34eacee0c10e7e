#ifndef QCONNEXIONRJ45_H
#define QCONNEXIONRJ45_H

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

// Base of every object that produces the current value of one measured
// channel: a short history of produced values (key = Unix second), a default
// value, the fall-back to the history when the measurement fails, and a
// start-up grace period during which a failure is passed on to the cycle.
class QConnexionRJ45 : public QObject
{
    Q_OBJECT
public:
    // The last response received for one frame identifier.
    class Reponse
    {
    public:
        Reponse();
        Reponse(const QString &id, const QByteArray &donnees);

        QString id;
        QDateTime date;
        QByteArray donnees;
    };

    static QDateTime dh_demarrage;
    static const int NB_MINUTES_IGNORER_ERREUR_MESURE_APRES_DEMARRAGE = 9;
    static const double VALEUR_DEFAUT_GLOBAL;
    static int NETWORK_TIMEOUT_MS;
    static const QString FICHIER_LOG;

    QConnexionRJ45(const QString &type, int nbMinutes);
    explicit QConnexionRJ45(const QString &type);
    ~QConnexionRJ45() override;

    QString getTypeConnexionRJ45() const { return typeConnexionRJ45; }
    void setNbSecondesMaximumHistorique(long secondes) { nbSecondesMaximumHistorique = secondes; }
    void setNbValeursHistorique(int nb) { nbValeursHistorique = nb; }
    void setValeurDefaut(double valeur) { valeurDefaut = valeur; }
    void setEcrireLog(bool actif) { ecrireLogActif = actif; }
    bool doitEcrireLog() const { return ecrireLogActif; }
    void definirEcrireFichierLog(bool actif);

    double getMesureEnCours();
    void ajouterDansHistorique(double valeur);
    void purgerAnciennesMesuresHistorique();
    double getDerniereMesureHistorique();
    double getAncienneMesureDeNSecondes(int n, bool *trouve);

    // Last-frame tracking for connection kinds that exchange frames.
    static QString trameToString(const QByteArray &trame);
    void ajouterDerniereTrame(Reponse *r, QList<Reponse *> *liste) const;
    void supprimerDerniereTrame(const QString &id, QList<Reponse *> *liste) const;
    Reponse *recupererDerniereTrame(const QString &id, QList<Reponse *> *liste) const;

    void ecrireLog(const QString &message, bool ecrireVal0, bool forcer) const;
    static QString getProcessMemoryUsage();

    // Produces the channel's value now; throws the integer -1 when it cannot.
    virtual double getMesureEnCoursSousType() = 0;
    virtual QString genererIdTrame() = 0;

    // History as it stands, for inspection.
    QMap<long, double> copieHistorique() const { return *historique; }

private:
    Q_DISABLE_COPY(QConnexionRJ45)

    double valeurDefaut = 0.0;
    qint32 nbMinutesHistorique;
    bool ecrireLogActif = true;
    long nbSecondesMaximumHistorique;
    qint32 nbValeursHistorique = -1;
    QMap<long, double> *historique;
    QString typeConnexionRJ45;
    QString fichierLog;
};

#endif // QCONNEXIONRJ45_H
