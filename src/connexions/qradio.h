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

    // Where the readings come from: the reading at an index of the service
    // object's list as it stands now, false past its end; tests put a reader
    // of their own in its place.
    using SourceLectures = std::function<bool(int index, DonneesUDP *lecture)>;
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
