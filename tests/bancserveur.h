#ifndef BANCSERVEUR_H
#define BANCSERVEUR_H

#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStringList>
#include <QVariant>

#include <memory>

// A server in a sandbox of its own, with the main application's segments and
// a frozen clock (the tunnel restart's pause at construction then costs
// nothing). Each bench gets a new radio database file: the connections a
// previous bench left are removed first, since Qt keeps them by name for the
// whole process.
class BancServeur
{
public:
    static constexpr quint32 MAINTENANT = 1700000000u;

    BancServeur()
    {
        retirerConnexions();
        bac.activer();
        Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT));
        appli.creerZones();
        serveur = std::make_unique<QServeurUdp>();
        // The tunnel restart's pause moved the frozen clock: back to the
        // bench's instant.
        Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT));
    }

    ~BancServeur()
    {
        serveur.reset();
        retirerConnexions();
        Horloge::liberer();
    }

    BancServeur(const BancServeur &) = delete;
    BancServeur &operator=(const BancServeur &) = delete;

    QString cheminBase() const { return bac.chemin(QStringLiteral("/var/base/hf.db")); }

    // Runs a statement on a connection of the test's own; the rows come back
    // as "a|b|c" texts.
    QStringList requete(const QString &sql, QString *erreur = nullptr) const
    {
        QStringList lignes;
        {
            QSqlDatabase base =
                QSqlDatabase::contains(CONNEXION)
                    ? QSqlDatabase::database(CONNEXION, false)
                    : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), CONNEXION);
            base.setDatabaseName(cheminBase());
            base.open();
            QSqlQuery query(base);
            if (!query.exec(sql) && erreur)
                *erreur = query.lastError().text();
            while (query.next()) {
                QStringList champs;
                for (int i = 0; i < query.record().count(); ++i)
                    champs << query.value(i).toString();
                lignes << champs.join(QLatin1Char('|'));
            }
            base.close();
        }
        return lignes;
    }

    // The server's messages in order, without their date and marker.
    static QStringList messages(const CaptureLog &capture)
    {
        static const QString MARQUE = QStringLiteral(" (serveur_udp) ");
        QStringList textes;
        const QStringList lignes = capture.lignes();
        for (const QString &ligne : lignes) {
            const int i = ligne.indexOf(MARQUE);
            if (i >= 0)
                textes << ligne.mid(i + MARQUE.size());
        }
        return textes;
    }

    BacASable bac;
    DoublureApplication appli;
    std::unique_ptr<QServeurUdp> serveur;

private:
    static constexpr const char *CONNEXION = "verification";

    static void retirerConnexions()
    {
        const QStringList noms = QSqlDatabase::connectionNames();
        for (const QString &nom : noms)
            QSqlDatabase::removeDatabase(nom);
    }
};

#endif // BANCSERVEUR_H
