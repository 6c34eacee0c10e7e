#include "udp/qserveurudp.h"

#include "radio/fonctions_bases.h"
#include "udp/arbremodules.h"
#include "udp/sqltexte.h"

#include <QSqlError>
#include <QSqlQuery>

#include <cstdlib>
#include <memory>

namespace {

QString erreurSql(const QSqlError &erreur)
{
    return QString::number(numeroErreur(erreur));
}

bool aEchoue(const QSqlQuery &query)
{
    return numeroErreur(query.lastError()) >= 0;
}

} // namespace

void QServeurUdp::setModule(QDateTime dateheure, QString module, QString parent, QString type,
                            int rank, double batterie, QString valeur, int alim)
{
    const QString secondes = QString::number(static_cast<quint32>(dateheure.toSecsSinceEpoch()));

    // Every substitution is made in one pass, so that a text holding "%1" or
    // a quote stays the literal it was sent as.
    const QString moduleSql = texteSql(module);
    const QString parentSql = texteSql(parent);
    const QString typeSql = texteSql(type);
    const QString valeurSql = texteSql(valeur);

    // "hf" is shared with the purges of the acquisition cycle.
    std::lock_guard<std::mutex> verrou(mutexDb);
    ecrireLog(QStringLiteral("setModule début traitement classique"));
    db.open();
    {
        QSqlQuery query(db);
        query.exec(QStringLiteral("select x, y, nom from modules where module = '%1' order by "
                                  "date_dernier_acces desc limit 1")
                       .arg(moduleSql));
        if (aEchoue(query))
            ecrireLog(QStringLiteral("Erreur select modules : %1 : %2")
                          .arg(erreurSql(query.lastError()), query.lastError().text()));

        if (!query.next()) {
            query.exec(QStringLiteral("insert into modules (module, parent, type, rank, "
                                      "date_dernier_acces, batterie, valeur, "
                                      "date_changement_pile) values ('%1', '%2', '%3', %4, %5, "
                                      "%6, '%7', '%8')")
                           .arg(moduleSql, parentSql, typeSql, QString::number(rank), secondes,
                                texteDouble(batterie), valeurSql, QString::number(-1)));
            if (aEchoue(query))
                ecrireLog(QStringLiteral("Erreur insertion modules : %1 : %2")
                              .arg(erreurSql(query.lastError()), query.lastError().text()));
        } else {
            // The file made at start-up has no `alim` column: this update fails
            // there and says so, as the appliance's own base always has.
            query.exec(QStringLiteral("update modules set date_dernier_acces=%1, parent='%2', "
                                      "type='%3', rank=%4, batterie=%5, valeur='%6', alim='%7' "
                                      "where module='%8'")
                           .arg(secondes, parentSql, typeSql, QString::number(rank),
                                texteDouble(batterie), valeurSql, QString::number(alim),
                                moduleSql));
            if (aEchoue(query))
                ecrireLog(QStringLiteral("Erreur update modules : %1  : %2")
                              .arg(erreurSql(query.lastError()), query.lastError().text()));
        }
    }

    // The tree reads the snapshot in place: freed once the tree is done with.
    const std::unique_ptr<les_modules_radio, decltype(&std::free)> table(
        fonctions_bases::getLesModulesRadio(), &std::free);
    const ArbreModules arbre(table.get());
    if (arbre.borneAtteinte())
        tracer([&] {
            return QStringLiteral("setModule : Calcul des rangs : i = %1")
                .arg(ArbreModules::NB_NIVEAUX_MAX);
        });

    const ArbreModules::Lieu lieu = arbre.lieu(module, parent);
    const int nb_sauts = lieu.profondeur;
    const double current_rank = lieu.pasDeRang;

    ecrireLog(QStringLiteral("Ajout dans LesInfosTrame"));
    ajouterInfoTrame(_info_trame(dateheure, module, current_rank, parent, lieu.nbEnfants));
    tracer([&] {
        std::lock_guard<std::mutex> verrouInfos(mutexInfosTrame);
        return QStringLiteral("LesInfosTrame.size() = %1").arg(LesInfosTrame.size());
    });

    tracer([&] { return QStringLiteral("fonctions_bases::getModule %1").arg(module); });
    gestion_radio gr = fonctions_bases::getModule(module);
    tracer([&] {
        return QStringLiteral("fonctions_bases::getModule %1 après").arg(gr.numeroTexte());
    });

    const QString prefixe = QStringLiteral("QServeurUDP::setModule %1 ");
    // Heard again, a module the main application had set aside is live anew.
    gr.present = 1;
    tracer([&] { return QString(prefixe + QStringLiteral("numero")).arg(module); });
    Champs::ecrireTexte(gr.numero, gestion_radio::LARGEUR_NUMERO, module.toUtf8(),
                        gestion_radio::LARGEUR_NUMERO);
    tracer([&] {
        return QString(prefixe + QStringLiteral("dateheure_mesure %2")).arg(module, secondes);
    });
    gr.dateheure_mesure = static_cast<quint32>(dateheure.toSecsSinceEpoch());
    tracer([&] {
        return QString(prefixe + QStringLiteral("nb_sauts %2"))
            .arg(module, QString::number(nb_sauts));
    });
    gr.nb_sauts = nb_sauts;
    tracer([&] { return QString(prefixe + QStringLiteral("parent %2")).arg(module, parent); });
    Champs::ecrireTexte(gr.parent, gestion_radio::LARGEUR_PARENT, parent.toUtf8(),
                        gestion_radio::LARGEUR_PARENT);
    tracer([&] {
        return QString(prefixe + QStringLiteral("pile %2")).arg(module, texteDouble(batterie));
    });
    gr.pile = batterie;
    tracer([&] {
        return QString(prefixe + QStringLiteral("rank %2")).arg(module, QString::number(rank));
    });
    gr.rank = rank;
    tracer([&] {
        return QString(prefixe + QStringLiteral("current_rank %2"))
            .arg(module, texteDouble(current_rank));
    });
    gr.current_rank = current_rank;
    tracer([&] { return QString(prefixe + QStringLiteral("type %2")).arg(module, type); });
    Champs::ecrireTexte(gr.type, gestion_radio::LARGEUR_TYPE, type.toUtf8(),
                        gestion_radio::LARGEUR_TYPE);
    tracer([&] { return QString(prefixe + QStringLiteral("valeur %2")).arg(module, valeur); });
    // Cut to 49 bytes so that the field always ends with its NUL; like the C
    // copy it replaces, a zero byte in the text ends it.
    tracer([&] {
        return QStringLiteral("memset(gr.valeur, 0, %1)").arg(gestion_radio::LARGEUR_VALEUR);
    });
    tracer([&] {
        return QStringLiteral("strncpy(gr.valeur, valeur.toUtf8().data(), %1)")
            .arg(gestion_radio::LARGEUR_VALEUR - 1);
    });
    const QByteArray valeurOctets = valeur.toUtf8();
    Champs::ecrireTexte(gr.valeur, gestion_radio::LARGEUR_VALEUR,
                        valeurOctets.left(static_cast<int>(qstrlen(valeurOctets.constData()))),
                        gestion_radio::LARGEUR_VALEUR - 1);
    ecrireLog(QStringLiteral("QServeurUDP::setModule après valeur"));

    tracer([&] {
        return QStringLiteral("fonctions_bases::setModule %1 (%2)").arg(module, gr.numeroTexte());
    });
    fonctions_bases::setModule(gr);
    tracer([&] {
        return QStringLiteral("fonctions_bases::setModule %1 (%2) après")
            .arg(module, gr.numeroTexte());
    });

    if (enregistrerMesures) {
        QSqlQuery query(db);
        query.exec(QStringLiteral("insert into mesures_hf (module, dateheure_mesure_hf, parent, "
                                  "rank, batterie, valeur, alim) values ('%1', %2, '%3', '%4', "
                                  "'%5', '%6', '%7')")
                       .arg(moduleSql, secondes, parentSql, QString::number(rank),
                            texteDouble(batterie), valeurSql, QString::number(alim)));
        if (aEchoue(query))
            ecrireLog(QStringLiteral("Erreur insertion mesures_hf : %1 : %2")
                          .arg(erreurSql(query.lastError()), query.lastError().text()));
    }
    db.close();
    tracer([&] { return QStringLiteral("setModule fin traitement classique %1").arg(module); });
}
