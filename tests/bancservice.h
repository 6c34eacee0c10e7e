#ifndef BANCSERVICE_H
#define BANCSERVICE_H

#include "bacasable.h"
#include "doublureapplication.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "radio/demande_enregistrement.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStringList>
#include <QVariant>

#include <cstring>
#include <memory>

// The service object in a sandbox of its own: the main application's
// segments and device database, a frozen clock (the tunnel restart's pause
// then costs nothing), the start-up grace period already over unless a test
// says otherwise, and every line of the acquisition log collected.
class BancService
{
public:
    static constexpr quint32 MAINTENANT = 1700000000u;

    static QStringList typesParDefaut()
    {
        return {QStringLiteral("Aucun"), QStringLiteral("PT100"), QStringLiteral("RADIO"),
                QStringLiteral("RADIO Contact")};
    }
    enum Type { AUCUN = 0, PT100 = 1, RADIO = 2, RADIO_CONTACT = 3 };

    explicit BancService(const QStringList &types = typesParDefaut())
        : demarrageOrigine(QConnexionRJ45::dh_demarrage)
    {
        retirerConnexions();
        bac.activer();
        Horloge::figer(QDateTime::fromSecsSinceEpoch(MAINTENANT));
        QConnexionRJ45::dh_demarrage = QDateTime::fromSecsSinceEpoch(MAINTENANT - 3600);
        DoublureApplication::creerBaseAppareil(bac.chemin(QStringLiteral("/var/base/itessalin.db")),
                                               types);
        appli.creerZones();
        appli.setNbVoiesPubliees(DoublureApplication::NB_VOIES);
        service = std::make_unique<AcquisitionRadio>();
        acq = service.get();
        QObject::connect(service.get(), &LogQuintaris::log, service.get(),
                         [this](const LogQuintaris::LigneLog &ligne) { lignes << ligne.texte; });
    }

    ~BancService()
    {
        acq = nullptr;
        service.reset();
        retirerConnexions();
        QConnexionRJ45::dh_demarrage = demarrageOrigine;
        Horloge::liberer();
    }

    BancService(const BancService &) = delete;
    BancService &operator=(const BancService &) = delete;

    // One cycle, with the lines it logged.
    QStringList cycle()
    {
        lignes.clear();
        service->recuperer_mesures();
        return lignes;
    }

    // A frame as the reception thread hands it over.
    void trame(const char *texte) { service->serveurUdp().traiterDatagram(QByteArray(texte)); }

    void ecrireAdresseBR(const QByteArray &contenu) const
    {
        QFile fichier(bac.chemin(QStringLiteral("/root/br_itessalin.txt")));
        fichier.open(QIODevice::WriteOnly | QIODevice::Truncate);
        fichier.write(contenu);
    }

    static gestion_radio module(const QByteArray &adresse, char present, qint32 dateChangementPile)
    {
        gestion_radio m;
        std::memset(&m, 0, sizeof m);
        m.present = present;
        std::memcpy(m.numero, adresse.constData(), static_cast<size_t>(adresse.size()));
        m.date_changement_pile = dateChangementPile;
        return m;
    }

    // Rows of a statement on the radio database, as "a|b|c" texts.
    QStringList requete(const QString &sql) const
    {
        QStringList resultat;
        {
            QSqlDatabase base = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"),
                                                          QStringLiteral("verification"));
            base.setDatabaseName(bac.chemin(QStringLiteral("/var/base/hf.db")));
            base.open();
            QSqlQuery query(base);
            if (!query.exec(sql))
                resultat << QStringLiteral("error: ") + query.lastError().text();
            while (query.next()) {
                QStringList champs;
                for (int i = 0; i < query.record().count(); ++i)
                    champs << query.value(i).toString();
                resultat << champs.join(QLatin1Char('|'));
            }
            base.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("verification"));
        return resultat;
    }

    BacASable bac;
    DoublureApplication appli;
    std::unique_ptr<AcquisitionRadio> service;
    QStringList lignes;

private:
    static void retirerConnexions()
    {
        const QStringList noms = QSqlDatabase::connectionNames();
        for (const QString &nom : noms)
            QSqlDatabase::removeDatabase(nom);
    }

    QDateTime demarrageOrigine;
};

#endif // BANCSERVICE_H
