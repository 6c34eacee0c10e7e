#include "udp/qserveurudp.h"

#include "commun/horloge.h"
#include "udp/decodeurtrame.h"

void QServeurUdp::traiterDatagram(QByteArray datagramme)
{
    const QDateTime dateheure = Horloge::maintenantUtc();
    const QString trame = DecodeurTrame::texteDatagramme(datagramme);

    ecrireLog(QStringLiteral("début traiterDatagram : Trame UDP reçue : %1").arg(trame));
    DonneesUDP donnees;
    const DecodeurTrame::Issue issue = DecodeurTrame::decoder(trame, dateheure, &donnees);
    if (issue == DecodeurTrame::Issue::Vide)
        return;

    int a_traite = 0;
    if (issue == DecodeurTrame::Issue::TypeInconnu) {
        ecrireLog(QStringLiteral("Type trame inconnu : '%1'").arg(trame.at(0)));
    } else if (issue == DecodeurTrame::Issue::Acceptee) {
        {
            // The acquisition cycle reads this list while frames arrive: it
            // must see either the old reading of the module or the new one.
            std::lock_guard<std::mutex> verrou(mutexDonneesUDP);
            lesDonneesUDP.remplacer(donnees, dateheure.toSecsSinceEpoch());
        }
        setModule(donnees.dateheure, donnees.module, donnees.parent, donnees.type,
                  DecodeurTrame::rangEntier(donnees.rank), donnees.batterie, donnees.valeur,
                  donnees.alim);
        a_traite = 1;
    }
    ecrireLog(QStringLiteral("fin traiterDatagram : a_traite = %1").arg(a_traite));
}
