#ifndef QRADIO_H
#define QRADIO_H

#include "connexions/qconnexionrj45.h"
#include "udp/donneesudp.h"

#include <QList>
#include <functional>

// The connection of a channel whose value comes from a radio module: it picks
// its module's latest reading from the service's reading list and extracts the
// quantity its channel measures (sub-type numeroMesure).
class QRadio : public QConnexionRJ45
{
    Q_OBJECT
public:
    static const QString TYPE_ACQUISITION;
    static const double VALEUR_DEFAUT_GLOBAL;
    static const int NB_SECONDE_VALIDITE_MESURE = 60;

    // Where the readings come from: the rang-th reading of a module in the
    // service object's list as it stands now, false past the last. That list
    // holds one reading per module; tests put a reader of their own in its
    // place, which may hold several.
    using SourceLectures =
        std::function<bool(const QString &module, int rang, DonneesUDP *lecture)>;
    static SourceLectures sourceLectures;

    QRadio(const QString &adresseModule, int numeroMesure);

    double getMesureEnCoursSousType() override;
    QString genererIdTrame() override;

    bool estContact = false;

private:
    QString adresseModule;
    qint32 numeroMesure;
};

#endif // QRADIO_H
