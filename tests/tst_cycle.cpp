#include "bancservice.h"

#include "connexions/qradio.h"
#include "radio/etat.h"
#include "radio/le_tessalin.h"

#include <QPointer>
#include <QtTest>

#include <memory>

using namespace Demande_enregistrement;

// One acquisition cycle against the main application's segments: heartbeat,
// save request, hourly rates, border-router address, registry and published
// values, and what happens when a segment is missing.
class TestCycle : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void lireAdresseBR_data();
    void lireAdresseBR();
    void tracesDUnCycleDansLOrdre();
    void premierCyclePublieChaqueVoieRadio();
    void adresseBRPublieeUneSeuleFois();
    void adresseBRAbsenteRelueAChaqueCycle();
    void demandeEnregistrementServie();
    void demandeEnregistrementSansTableEnAttente();
    void tauxEnregistresChaqueHeure();
    void zoneAbsente_data();
    void zoneAbsente();
    void periodeDeDemarrage();
    void offsetSeulGardeLaConnexion();
    void voieDevenueNonRadioNonEcrite();

private:
    double mesure(int voie) const { return banc->appli.mesure(voie); }
    std::unique_ptr<BancService> banc;
};

void TestCycle::init()
{
    banc = std::make_unique<BancService>();
}

void TestCycle::cleanup()
{
    banc.reset();
}

void TestCycle::lireAdresseBR_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<QByteArray>("contenu");
    QTest::addColumn<QString>("attendu");

    QTest::newRow("7 characters and newline: 8 bytes")
        << true << QByteArray("fd00::1\n") << "fd00::1\n";
    QTest::newRow("short line keeps its newline") << true << QByteArray("ab\ncd\n") << "ab\n";
    QTest::newRow("long line cut at 8 bytes") << true << QByteArray("fd00::abcd:1\n") << "fd00::ab";
    QTest::newRow("8 characters: newline left out")
        << true << QByteArray("fd00::12\n") << "fd00::12";
    QTest::newRow("no newline") << true << QByteArray("abc") << "abc";
    QTest::newRow("empty file") << true << QByteArray() << "";
    QTest::newRow("missing file") << false << QByteArray() << "";
}

void TestCycle::lireAdresseBR()
{
    QFETCH(bool, present);
    QFETCH(QByteArray, contenu);
    QFETCH(QString, attendu);

    if (present)
        banc->ecrireAdresseBR(contenu);
    QCOMPARE(banc->service->lireAdresseBR(), attendu);
}

void TestCycle::tracesDUnCycleDansLOrdre()
{
    const QStringList attendu = {
        "début recuperer_mesures",
        "recuperer_mesures : zone_enregistrement.attach()",
        "recuperer_mesures : zone_enregistrement.data()",
        "recuperer_mesures : acquisitionRADIO_fonctionne = true",
        "recuperer_mesures : demande_memoire->enregistrer_donnees_radio",
        "recuperer_mesures : après zone_enregistrement.attach()",
        "recuperer_mesures : supprimerAnciensModules()",
        "recuperer_mesures : supprimerAnciennesMesures()",
        "recuperer_mesures : ouvrirSiNonOuvert()",
        "recuperer_mesures : verifierSiBesoinRepairBr()",
        "recuperer_mesures : supprimerAnciennesInfosTrames()",
        "recuperer_mesures : calculerTauxInfosTrames()",
        "recuperer_mesures : zone_voies(\"Config_Voies_iTessalin\")",
        "recuperer_mesures : zone_itessalin(\"Config_iTessalin\")",
        "recuperer_mesures : zone_voies.attach() && zone_itessalin.attach()",
        "recuperer_mesures : zone_voies.data()",
        "recuperer_mesures : zone_itessalin.data()",
        "Lecture de l'adresse du BR...",
        "Adresse du BR lu : fd00::1\n",
        "recuperer_mesures : zone_mesure(\"Etat_iTessalin\")",
        "recuperer_mesures : zone_mesure.attach()",
        "recuperer_mesures : zone_mesure.data()",
        "recuperer_mesures : après zone_mesure.data()",
        "Application de l'offset 1.5, mesure corrigée = 23",
        "recuperer_mesures : mesure_memoire->Mesure[2] = 23",
        "recuperer_mesures : mesure_memoire->Mesure[7] = 1e+06",
        "recuperer_mesures : après zone_mesure.attach()",
        "recuperer_mesures : après zone_voies.attach() && zone_itessalin.attach()",
        "fin recuperer_mesures",
    };
    banc->ecrireAdresseBR("fd00::1\n");
    banc->appli.ecrireVoie(7, BancService::RADIO, "0012", 0, 0.0);
    banc->appli.ecrireVoie(2, BancService::RADIO, "0011", 0, 1.5);
    banc->trame("A0011:BR:260:215:36");
    banc->trame("A0012:BR:260:10000000:36");
    banc->service->enregistrerVoieRadio(2, BancService::RADIO, "0011", 0);
    banc->service->enregistrerVoieRadio(7, BancService::RADIO, "0012", 0);

    QCOMPARE(banc->cycle(), attendu);
}

void TestCycle::premierCyclePublieChaqueVoieRadio()
{
    banc->ecrireAdresseBR("fd00::1\n");
    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, 1.5);
    banc->appli.ecrireVoie(2, BancService::RADIO, "0012:capteur:b", 1, 0.0);
    banc->appli.ecrireVoie(3, BancService::RADIO, "0012", 2, 0.0);
    banc->appli.ecrireVoie(4, BancService::RADIO_CONTACT, "0013", 0, 0.0);
    banc->appli.ecrireVoie(5, BancService::RADIO_CONTACT, "0013", 1, 0.0);
    banc->appli.ecrireVoie(6, BancService::PT100, "0011", 0, 0.0);
    banc->appli.setMesure(6, 123.0);
    banc->trame("A0011:BR:260:215:36");
    banc->trame("B0012:BR:260:201:-52:33");
    banc->trame("E0013:0011:390:5:0:36:1");

    const QStringList lignes = banc->cycle();

    QCOMPARE(banc->appli.octetDemande(OFFSET_ACQUISITIONRADIO_FONCTIONNE), uchar(1));
    QCOMPARE(mesure(1), 21.5 + 1.5);
    QCOMPARE(mesure(2), -5.2);
    QCOMPARE(mesure(3), 3.3);
    QCOMPARE(mesure(4), 1.0);
    QCOMPARE(mesure(5), 1.0);
    QCOMPARE(mesure(6), 123.0);
    QCOMPARE(banc->service->lesConnexions().keys(), (QList<int>{1, 2, 3, 4, 5}));
    QCOMPARE(banc->service->lesCapteursRecuperes().at(1).parametres, (QStringList{"capteur", "b"}));
    // Each value is traced once, in channel order.
    int precedent = -1;
    for (int v = 1; v <= 5; ++v) {
        const int i = lignes.indexOf(QRegularExpression(
            QStringLiteral("^recuperer_mesures : mesure_memoire->Mesure\\[%1\\] = .*").arg(v)));
        QVERIFY2(i > precedent, qPrintable(QString::number(v)));
        precedent = i;
    }
    QVERIFY(lignes.contains("recuperer_mesures : mesure_memoire->Mesure[2] = -5.2"));
    QCOMPARE(banc->appli.adresseBR(), QByteArray("fd00::1\n"));
    QCOMPARE(banc->appli.octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(1));
}

void TestCycle::adresseBRPublieeUneSeuleFois()
{
    banc->ecrireAdresseBR("fd00::1\n");
    banc->cycle();
    QCOMPARE(banc->appli.adresseBR(), QByteArray("fd00::1\n"));
    banc->appli.setOctetDemande(OFFSET_CONFIG_MODIFIEE, 0);
    banc->appli.setAdresseBR("autre");
    banc->ecrireAdresseBR("fd00::2\n");

    const QStringList lignes = banc->cycle();

    QVERIFY(!lignes.contains("Lecture de l'adresse du BR..."));
    QCOMPARE(banc->appli.adresseBR(), QByteArray("autre"));
    QCOMPARE(banc->appli.octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(0));
}

void TestCycle::adresseBRAbsenteRelueAChaqueCycle()
{
    // What the main application had published is cleared, once.
    banc->appli.setAdresseBR("ancienne");
    banc->cycle();
    QCOMPARE(banc->appli.adresseBR(), QByteArray());
    QCOMPARE(banc->appli.octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(1));

    banc->appli.setOctetDemande(OFFSET_CONFIG_MODIFIEE, 0);
    QVERIFY(banc->cycle().contains("Lecture de l'adresse du BR..."));
    QCOMPARE(banc->appli.octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(0));

    // Without the request block the file is not even looked at.
    banc->ecrireAdresseBR("fd00::9\n");
    banc->appli.detruireZone("Demande_enreg");
    QVERIFY(!banc->cycle().contains("Lecture de l'adresse du BR..."));
    QCOMPARE(banc->appli.adresseBR(), QByteArray());

    QVERIFY(banc->appli.creerZone("Demande_enreg"));
    QVERIFY(banc->cycle().contains("Adresse du BR lu : fd00::9\n"));
    QCOMPARE(banc->appli.adresseBR(), QByteArray("fd00::9\n"));
    QCOMPARE(banc->appli.octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(1));
}

void TestCycle::demandeEnregistrementServie()
{
    banc->appli.ecrireModule(0, BancService::module("0011", 1, 1700000123));
    banc->appli.ecrireModule(1, BancService::module("0098", 0, 55));
    banc->requete("insert into modules (module, date_changement_pile) values ('0011', -1)");
    banc->requete("insert into modules (module, date_changement_pile) values ('0098', -1)");
    banc->requete("insert into modules (module, date_changement_pile) values ('0077', -1)");
    banc->appli.setOctetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO, 1);

    const QStringList lignes = banc->cycle();

    QCOMPARE(banc->appli.octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(0));
    QCOMPARE(lignes.filter(QRegularExpression("^recuperer_mesures : setModuleBD ")).size(), 100);
    const int premier = lignes.indexOf("recuperer_mesures : setModuleBD 0 0011 1700000123 1");
    QVERIFY(premier > 0);
    QCOMPARE(lignes.at(premier - 1),
             QStringLiteral("recuperer_mesures : Demande d'enregistrement ..."));
    QCOMPARE(lignes.at(premier + 1), QStringLiteral("recuperer_mesures : setModuleBD 1 0098 55 0"));
    QCOMPARE(lignes.at(premier + 2), QStringLiteral("recuperer_mesures : setModuleBD 2  0 0"));
    QCOMPARE(lignes.at(premier + 100), QStringLiteral("recuperer_mesures : free(lmr)"));
    QCOMPARE(lignes.at(premier + 101),
             QStringLiteral("recuperer_mesures : demande_memoire->enregistrer_donnees_radio"));
    QCOMPARE(lignes.at(premier + 102),
             QStringLiteral("recuperer_mesures : après zone_enregistrement.attach()"));
    QCOMPARE(banc->requete("select module, date_changement_pile from modules order by module"),
             (QStringList{"0011|1700000123", "0077|-1"}));
}

void TestCycle::demandeEnregistrementSansTableEnAttente()
{
    banc->appli.detruireZone("Zone_HF");
    banc->appli.setOctetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO, 1);

    const QStringList lignes = banc->cycle();

    QCOMPARE(banc->appli.octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(1));
    QVERIFY(lignes.contains("recuperer_mesures : Demande d'enregistrement ..."));
    QVERIFY(!lignes.contains("recuperer_mesures : free(lmr)"));
    // The rest of the cycle goes on.
    QCOMPARE(lignes.last(), QStringLiteral("fin recuperer_mesures"));

    QVERIFY(banc->appli.creerZone("Zone_HF"));
    banc->appli.setOctetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO, 1);
    banc->cycle();
    QCOMPARE(banc->appli.octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(0));
}

void TestCycle::tauxEnregistresChaqueHeure()
{
    const QString sql = QStringLiteral(
        "select dateheure_mesure_taux from mesures_taux where module = '0011' order by rowid");
    banc->appli.ecrireModule(0, BancService::module("0011", 1, 0));
    const qint64 t = Horloge::maintenantSecondes();

    banc->cycle(); // the first cycle always saves
    QCOMPARE(banc->requete(sql), QStringList{QString::number(t)});

    Horloge::avancer(3599);
    banc->cycle();
    QCOMPARE(banc->requete(sql).size(), 1);
    Horloge::avancer(1);
    banc->cycle();
    QCOMPARE(banc->requete(sql), (QStringList{QString::number(t), QString::number(t + 3600)}));

    // The clock set back by a day: the hour starts again from there.
    Horloge::figer(QDateTime::fromSecsSinceEpoch(t - 86400));
    banc->cycle();
    QCOMPARE(banc->requete(sql).size(), 2);
    Horloge::avancer(3599);
    banc->cycle();
    QCOMPARE(banc->requete(sql).size(), 2);
    Horloge::avancer(1);
    banc->cycle();
    QCOMPARE(banc->requete(sql).last(), QString::number(t - 86400 + 3600));
}

void TestCycle::zoneAbsente_data()
{
    QTest::addColumn<QString>("zone");
    QTest::addColumn<bool>("battement");
    QTest::addColumn<bool>("registre");
    QTest::addColumn<bool>("publie");

    QTest::newRow("Demande_enreg") << "Demande_enreg" << false << true << true;
    QTest::newRow("Config_Voies_iTessalin") << "Config_Voies_iTessalin" << true << false << false;
    QTest::newRow("Config_iTessalin") << "Config_iTessalin" << true << false << false;
    QTest::newRow("Etat_iTessalin") << "Etat_iTessalin" << true << true << false;
}

void TestCycle::zoneAbsente()
{
    QFETCH(QString, zone);
    QFETCH(bool, battement);
    QFETCH(bool, registre);
    QFETCH(bool, publie);

    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, 0.0);
    banc->appli.setMesure(1, 7.0);
    banc->trame("A0011:BR:260:215:36");
    banc->appli.detruireZone(zone);

    const QStringList lignes = banc->cycle();

    const bool configuration = zone.startsWith("Config");
    QCOMPARE(lignes.contains("recuperer_mesures : acquisitionRADIO_fonctionne = true"), battement);
    QCOMPARE(lignes.contains("recuperer_mesures : Impossible d'ouvrir QSharedMemory "
                             "Config_Voies_iTessalin"),
             configuration);
    QCOMPARE(banc->service->lesConnexions().contains(1), registre);
    QCOMPARE(lignes.contains("recuperer_mesures : mesure_memoire->Mesure[1] = 21.5"), publie);
    QCOMPARE(lignes.contains("recuperer_mesures : après zone_mesure.attach()"), !configuration);
    if (banc->appli.zonePresente("Etat_iTessalin"))
        QCOMPARE(mesure(1), publie ? 21.5 : 7.0);
    if (banc->appli.zonePresente("Demande_enreg"))
        QCOMPARE(banc->appli.octetDemande(OFFSET_ACQUISITIONRADIO_FONCTIONNE), uchar(1));
    // The maintenance steps run whatever the segments.
    QVERIFY(lignes.contains("recuperer_mesures : calculerTauxInfosTrames()"));
    QCOMPARE(lignes.last(), QStringLiteral("fin recuperer_mesures"));
}

void TestCycle::periodeDeDemarrage()
{
    QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-100);
    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, 0.0);
    banc->appli.ecrireVoie(2, BancService::RADIO, "0099", 0, 0.0);
    banc->appli.ecrireVoie(3, BancService::RADIO, "0012", 0, 2.0);
    for (int v = 1; v <= 3; ++v)
        banc->appli.setMesure(v, 7.0);
    banc->trame("A0011:BR:260:215:36");
    banc->trame("A0012:BR:260:100:36");

    QStringList lignes = banc->cycle();

    // A module never heard keeps what the main application had; the
    // channels after it are still published.
    QCOMPARE(mesure(1), 21.5);
    QCOMPARE(mesure(2), 7.0);
    QCOMPARE(mesure(3), 12.0);
    QVERIFY(lignes.filter("Mesure[2]").isEmpty());

    // Once the grace period is over the channel falls back to its default.
    QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-541);
    lignes = banc->cycle();
    QCOMPARE(mesure(2), QRadio::VALEUR_DEFAUT_GLOBAL);
    QVERIFY(lignes.contains("recuperer_mesures : mesure_memoire->Mesure[2] = -55"));
}

void TestCycle::offsetSeulGardeLaConnexion()
{
    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, 0.0);
    banc->trame("A0011:BR:260:215:36");
    banc->cycle();
    const QPointer<QConnexionRJ45> premiere = banc->service->lesConnexions().value(1);
    QVERIFY(premiere);
    QCOMPARE(mesure(1), 21.5);

    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, -0.5);
    QStringList lignes = banc->cycle();
    QCOMPARE(banc->service->lesConnexions().value(1), premiere.data());
    QVERIFY(lignes.filter("Retrait").isEmpty());
    QCOMPARE(mesure(1), 21.0);
    QVERIFY(lignes.contains("Application de l'offset -0.5, mesure corrigée = 21"));

    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 2, -0.5);
    lignes = banc->cycle();
    QVERIFY(banc->service->lesConnexions().value(1) != premiere.data());
    QVERIFY(lignes.contains("Retrait du capteur RJ45 1"));
    QCOMPARE(mesure(1), 3.6 - 0.5);
}

void TestCycle::voieDevenueNonRadioNonEcrite()
{
    banc->appli.ecrireVoie(1, BancService::RADIO, "0011", 0, 0.0);
    banc->appli.ecrireVoie(2, BancService::RADIO, "0012", 0, 0.0);
    banc->trame("A0011:BR:260:215:36");
    banc->trame("A0012:BR:260:100:36");
    banc->cycle();
    QCOMPARE(mesure(1), 21.5);

    banc->appli.ecrireVoie(1, BancService::PT100, "0011", 0, 0.0);
    banc->appli.setMesure(1, 7.0);
    banc->appli.setMesure(2, 7.0);
    const QStringList lignes = banc->cycle();

    QVERIFY(lignes.contains("Retrait du capteur RJ45 1"));
    QCOMPARE(banc->service->lesConnexions().keys(), QList<int>{2});
    QCOMPARE(mesure(1), 7.0);
    QCOMPARE(mesure(2), 10.0);
}

QTEST_GUILESS_MAIN(TestCycle)
#include "tst_cycle.moc"
