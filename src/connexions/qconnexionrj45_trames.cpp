#include "connexions/qconnexionrj45.h"

#include "commun/horloge.h"

#include <QDebug>
#include <QVector>

QConnexionRJ45::Reponse::Reponse()
{
    qDebug() << "Reponse()" << static_cast<const void *>(this) << ": vide";
}

QConnexionRJ45::Reponse::Reponse(const QString &id, const QByteArray &donnees)
    : id(id)
    , date(Horloge::maintenant())
    , donnees(donnees)
{
    qDebug().noquote() << "Reponse :" << static_cast<const void *>(this)
                       << QString(QStringLiteral(": id=") + id);
    qDebug() << "Reponse" << static_cast<const void *>(this) << "malloc donnees" << donnees;
}

// No leading zeros: the devices' own tools print frames this way and people
// compare the two by eye.
QString QConnexionRJ45::trameToString(const QByteArray &trame)
{
    QString texte;
    for (const char octet : trame)
        texte += QLatin1Char(' ') + QString::number(static_cast<uchar>(octet), 16).toUpper();
    return texte.trimmed();
}

void QConnexionRJ45::ajouterDerniereTrame(Reponse *r, QList<Reponse *> *liste) const
{
    ecrireLog(QStringLiteral("Ajout dernière trame id %1 nb=%2")
                  .arg(r->id, QString::number(liste->size())),
              false, false);

    // The replaced record is not deleted: whoever built it may still hold it.
    bool remplace = false;
    for (int i = 0; i < liste->size(); ++i) {
        if (liste->at(i)->id == r->id) {
            (*liste)[i] = r;
            remplace = true;
            break;
        }
    }
    if (!remplace)
        liste->append(r);

    ecrireLog(QStringLiteral("Dernières trames nb=%1").arg(liste->size()), false, false);
}

void QConnexionRJ45::supprimerDerniereTrame(const QString &id, QList<Reponse *> *liste) const
{
    ecrireLog(QStringLiteral("Supprimer dernière trame id %1 nb=%2")
                  .arg(id, QString::number(liste->size())),
              false, false);

    QVector<int> positions;
    for (int i = 0; i < liste->size(); ++i) {
        if (liste->at(i)->id == id)
            positions.append(i);
    }
    // From the back, so that the positions still to remove stay valid.
    for (int k = positions.size() - 1; k >= 0; --k) {
        const int position = positions.at(k);
        if (position >= 0 && position < liste->size())
            liste->removeAt(position);
    }

    ecrireLog(QStringLiteral("Dernières trames nb=%1").arg(liste->size()), false, false);
}

QConnexionRJ45::Reponse *QConnexionRJ45::recupererDerniereTrame(const QString &id,
                                                                QList<Reponse *> *liste) const
{
    ecrireLog(QStringLiteral("Récupérer dernière trame id %1 nb=%2")
                  .arg(id, QString::number(liste->size())),
              false, false);

    for (Reponse *r : qAsConst(*liste)) {
        const bool egal = r->id == id;
        ecrireLog(QStringLiteral("Comparaison trame id %1 == %2 ? %3")
                      .arg(r->id, id, egal ? QStringLiteral("1") : QStringLiteral("0")),
                  false, false);
        if (egal)
            return r;
    }

    ecrireLog(QStringLiteral("Dernières trames non trouvé"), false, false);
    return nullptr;
}
