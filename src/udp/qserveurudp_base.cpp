#include "udp/qserveurudp.h"

#include "commun/environnement.h"
#include "udp/sqltexte.h"

#include <QFile>
#include <QSqlError>
#include <QSqlQuery>

namespace {
const QString PILOTE = QStringLiteral("QSQLITE");
const QString CONNEXION_HF = QStringLiteral("hf");
const QString CONNEXION_HF_SET = QStringLiteral("hf_set");
} // namespace

void QServeurUdp::creerBD()
{
    {
        // The reception thread may already be using "hf" for a frame.
        std::lock_guard<std::mutex> verrou(mutexDb);
        if (!QSqlDatabase::contains(CONNEXION_HF)) {
            db = QSqlDatabase::addDatabase(PILOTE, CONNEXION_HF);
            db.setDatabaseName(Environnement::chemin(CHEMIN_FICHIER_DB));
        } else {
            db = QSqlDatabase::database(CONNEXION_HF, true);
        }
        db.open();

        // Each statement runs whatever the previous one gave: on every start
        // after the first, the index statements and the migration fail, which
        // is expected and left silent.
        {
            QSqlQuery query(db);
            query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS modules ( \n module varchar(10), "
                                      "\n parent varchar(10), \n type varchar(3), \n rank double, "
                                      "\n date_dernier_acces integer, \n x integer, \n y integer, "
                                      "\n nom varchar(100), \n batterie double, \n valeur double, "
                                      "\n date_changement_pile integer \n)"));
            query.exec(QStringLiteral("CREATE UNIQUE INDEX module ON modules(module ASC)"));
            query.exec(QStringLiteral("CREATE INDEX parent ON modules(parent ASC)"));
        }
        if (enregistrerMesuresHf) {
            QSqlQuery query(db);
            query.exec(
                QStringLiteral("CREATE TABLE IF NOT EXISTS mesures_hf ( \nmodule varchar(10), "
                               "\ndateheure_mesure_hf integer, \nparent varchar(10), \nrank "
                               "double, \nbatterie double, \nvaleur varchar(30), \nalim "
                               "integer \n)"));
            // Databases made before the supply indicator existed get the column.
            query.exec(QStringLiteral("ALTER TABLE mesures_hf ADD COLUMN alim integer"));
            query.exec(
                QStringLiteral("CREATE INDEX dateheure ON mesures_hf(dateheure_mesure_hf ASC)"));
            query.exec(QStringLiteral("CREATE INDEX module_dateheure ON mesures_hf(module ASC, "
                                      "dateheure_mesure_hf ASC)"));
        }
        {
            // Index names are unique in the whole file: once mesures_hf holds
            // them, these two fail and mesures_taux keeps no index.
            QSqlQuery query(db);
            query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS mesures_taux ( \nmodule "
                                      "varchar(10), \ndateheure_mesure_taux integer, "
                                      "\ntaux_reception double, \ntaux_utilisation double \n)"));
            query.exec(QStringLiteral(
                "CREATE INDEX dateheure ON mesures_taux(dateheure_mesure_taux ASC)"));
            query.exec(QStringLiteral("CREATE INDEX module_dateheure ON mesures_taux(module ASC, "
                                      "dateheure_mesure_taux ASC)"));
        }
        db.close();
    }
    // The main application opens the file too, under another user.
    QFile::setPermissions(Environnement::chemin(CHEMIN_FICHIER_DB),
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                              QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                              QFileDevice::ReadOther | QFileDevice::WriteOther);
}

void QServeurUdp::setModuleBD(QString module, int date_changement_pile, bool present)
{
    QSqlDatabase dbSet;
    if (QSqlDatabase::contains(CONNEXION_HF_SET)) {
        dbSet = QSqlDatabase::database(CONNEXION_HF_SET, true);
    } else {
        std::lock_guard<std::mutex> verrou(mutexDb);
        dbSet = QSqlDatabase::cloneDatabase(db, CONNEXION_HF_SET);
    }
    dbSet.open();
    {
        QSqlQuery query(dbSet);
        QString requete;
        if (present)
            requete =
                QStringLiteral("update modules set date_changement_pile='%1' where module='%2'")
                    .arg(date_changement_pile)
                    .arg(texteSql(module));
        else if (!module.isEmpty())
            requete = QStringLiteral("delete from modules where module='%1'").arg(texteSql(module));

        if (!requete.isEmpty()) {
            query.exec(requete);
            const QSqlError erreur = query.lastError();
            if (numeroErreur(erreur) >= 0)
                ecrireLog(
                    QStringLiteral("Erreur exécution requete maj ou suppression module : %1 : "
                                   "%2 : %3")
                        .arg(requete, QString::number(numeroErreur(erreur)), erreur.text()));
        }
    }
    dbSet.close();
}

QSqlDatabase QServeurUdp::connexionTache(const QString &nom, const QString &prefixeLog)
{
    ecrireLog(QStringLiteral("%1 QSqlDatabase::contains(\"%2\")").arg(prefixeLog, nom));
    if (QSqlDatabase::contains(nom)) {
        ecrireLog(QStringLiteral("%1 QSqlDatabase::database(\"%2\")").arg(prefixeLog, nom));
        return QSqlDatabase::database(nom, true);
    }
    ecrireLog(
        QStringLiteral("%1 QSqlDatabase::addDatabase(\"QSQLITE\", \"%2\")").arg(prefixeLog, nom));
    QSqlDatabase connexion = QSqlDatabase::addDatabase(PILOTE, nom);
    ecrireLog(QStringLiteral("%1 setDatabaseName").arg(prefixeLog));
    connexion.setDatabaseName(Environnement::chemin(CHEMIN_FICHIER_DB));
    return connexion;
}
