#include "bancservice.h"
#include "doublureapplication.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "radio/demande_enregistrement.h"

#include <QPointer>

using namespace Demande_enregistrement;
using Capteur = AcquisitionRadio::capteur;

// The trace of a whole cycle, "~" standing for "recuperer_mesures : ".
const char *const TRACE_CYCLE =
    "début recuperer_mesures|~zone_enregistrement.attach()|~zone_enregistrement.data()|"
    "~acquisitionRADIO_fonctionne = true|~demande_memoire->enregistrer_donnees_radio|"
    "~après zone_enregistrement.attach()|~supprimerAnciensModules()|~supprimerAnciennesMesures()|"
    "~ouvrirSiNonOuvert()|~verifierSiBesoinRepairBr()|~supprimerAnciennesInfosTrames()|"
    "~calculerTauxInfosTrames()|~zone_voies(\"Config_Voies_iTessalin\")|"
    "~zone_itessalin(\"Config_iTessalin\")|~zone_voies.attach() && zone_itessalin.attach()|"
    "~zone_voies.data()|~zone_itessalin.data()|Lecture de l'adresse du BR...|"
    "Adresse du BR lu : fd00::1\n|~zone_mesure(\"Etat_iTessalin\")|~zone_mesure.attach()|"
    "~zone_mesure.data()|~après zone_mesure.data()|"
    "Application de l'offset 1.5, mesure corrigée = 1e+06|~mesure_memoire->Mesure[64] = 1e+06|"
    "~après zone_mesure.attach()|~après zone_voies.attach() && zone_itessalin.attach()|"
    "fin recuperer_mesures";

// The sensor registry and the acquisition cycle, in a sandbox with the main application's zones.
class TestCycle : public QObject
{
    Q_OBJECT
    enum { PT100 = 1, RADIO = 2 };
    const QStringList types{"Aucun", "PT100",  "RADIO",        "RADIO Contact", "RADIO CONTACT sec",
                            "Radio", " RADIO", "PT100 contact"};
    std::unique_ptr<BacASable> bac;
    std::unique_ptr<DoublureApplication> appli;
    QStringList lignes;

    QStringList cycle()
    {
        lignes.clear();
        acq->recuperer_mesures();
        return lignes;
    }
    QStringList base(const QString &sql) { return requete(bac->chemin("/var/base/hf.db"), sql); }

private slots:
    void init()
    {
        bac = std::make_unique<BacASable>();
        bac->activer();
        Horloge::figer(QDateTime::fromSecsSinceEpoch(1700000000));
        QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-3600); // grace period over
        DoublureApplication::creerBaseAppareil(bac->chemin("/var/base/itessalin.db"), types);
        appli = std::make_unique<DoublureApplication>();
        appli->creerZones();
        acq = new AcquisitionRadio;
        acq->serveurUdp().traiterDatagram("A0011:BR:260:215:36"); // module 0011 heard: 21.5
        lignes.clear();
        connect(acq, &LogQuintaris::log, [this](const auto &ligne) { lignes << ligne.texte; });
    }
    void cleanup()
    {
        delete acq;
        for (const QString &nom : QSqlDatabase::connectionNames())
            QSqlDatabase::removeDatabase(nom);
        appli.reset();
        bac.reset();
    }

    void capteurDUneVoie_data()
    {
        // Channel 4 is first registered from "0042:a:b" with numero 1.
        QTest::addColumn<QString>("texte");
        QTest::addColumn<int>("numero");
        QTest::addColumn<bool>("identique");
        QTest::newRow("same") << "0042:a:b" << 1 << true;
        QTest::newRow("numero") << "0042:a:b" << 2 << false;
        QTest::newRow("address") << "0043:a:b" << 1 << false;
        QTest::newRow("parameter case") << "0042:A:b" << 1 << false;
        QTest::newRow("swapped") << "0042:b:a" << 1 << false;
        QTest::newRow("one less") << "0042:a" << 1 << false;
        QTest::newRow("one more, empty") << "0042:a:b:" << 1 << false;
        QTest::newRow("address alone") << "0042" << 1 << false;
        QTest::newRow("empty parts") << "::b:" << 1 << false;
    }
    void capteurDUneVoie()
    {
        QFETCH(QString, texte);
        QFETCH(int, numero);
        QFETCH(bool, identique);
        acq->ajouterCapteurRecupere(Capteur(6, PT100, "", 0, {})); // no connection: counts differ
        acq->enregistrerVoieRadio(4, RADIO, "0042:a:b", 1);
        const Capteur premier = acq->lesCapteursRecuperes().last();
        const QPointer<QConnexionRJ45> connexion = acq->lesConnexions().value(4);
        acq->effaceCapteurRecupere(9); // not registered: silent
        acq->enregistrerVoieRadio(4, RADIO, texte.toUtf8(), numero);
        const Capteur &c = acq->lesCapteursRecuperes().last();
        // Split at every ":", empty parts kept; the address is the first part.
        QCOMPARE(QStringList{c.adresse} + c.parametres, texte.split(':'));
        QCOMPARE(c.estIdentique(premier), identique);
        QCOMPARE(premier.estIdentique(c), identique);
        QConnexionRJ45 *nouvelle = acq->lesConnexions().value(4);
        QCOMPARE(nouvelle == connexion, identique);
        const QStringList retrait{"Retrait du capteur RJ45 4", "(avant retrait nb = 2 / 1)"};
        QCOMPARE(lignes, identique ? QStringList() : retrait);
        QCOMPARE(nouvelle ? nouvelle->genererIdTrame() : QString(),
                 c.adresse + ':' + QString::number(numero));
    }

    void typesRadioEtContact_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<bool>("radio");
        QTest::addColumn<bool>("contact");
        QTest::newRow("RADIO") << 2 << true << false;
        QTest::newRow("RADIO Contact") << 3 << true << true;
        QTest::newRow("RADIO CONTACT sec") << 4 << true << true;
        QTest::newRow("Radio") << 5 << false << false;
        QTest::newRow("blank before RADIO") << 6 << false << false;
        QTest::newRow("PT100 contact") << 7 << false << false;
        QTest::newRow("negative") << -1 << false << false;
        QTest::newRow("past the list") << 8 << false << false;
    }
    void typesRadioEtContact()
    {
        QFETCH(int, type);
        QFETCH(bool, radio);
        QFETCH(bool, contact);
        QCOMPARE(acq->typeEstRADIO(type), radio);
        QCOMPARE(acq->typeEstRADIOContact(type), contact);
        std::unique_ptr<QConnexionRJ45> cree(acq->creerConnexionRJ45(Capteur(5, type, "", 0, {})));
        QCOMPARE(cree != nullptr, radio);
        const QString inconnu = QString("Type %1 inconnu : %2").arg(type).arg(types.value(type));
        QCOMPARE(lignes, radio ? QStringList() : QStringList{inconnu});
    }

    void deuxCycles()
    {
        QFile fichier(bac->chemin("/root/br_itessalin.txt"));
        QVERIFY(fichier.open(QIODevice::WriteOnly) && fichier.write("fd00::1\n") &&
                fichier.flush());
        // Within the start-up grace period channel 10, never heard, keeps its value.
        QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-100);
        appli->ecrireVoie(10, RADIO, "0099", 0, 0.0);
        appli->setMesure(10, -7.0);
        appli->ecrireVoie(64, RADIO, "0011", 0, 1.5); // the last channel with an offset
        acq->serveurUdp().traiterDatagram("A0011:BR:260:10000000:36");
        QCOMPARE(cycle(), QString(TRACE_CYCLE).replace('~', "recuperer_mesures : ").split('|'));
        QCOMPARE(appli->mesure(10), -7.0);
        QCOMPARE(appli->mesure(64), 1000001.5);
        QCOMPARE(appli->adresseBR(), QByteArray("fd00::1\n"));
        QCOMPARE(appli->octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(1));

        // The address is read once per process; the offset is no part of the sensor.
        const QPointer<QConnexionRJ45> connexion = acq->lesConnexions().value(64);
        appli->setOctetDemande(OFFSET_CONFIG_MODIFIEE, 0);
        appli->ecrireVoie(64, RADIO, "0011", 0, -0.5);
        QVERIFY(!cycle().contains("Lecture de l'adresse du BR..."));
        QCOMPARE(appli->octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(0));
        QCOMPARE(acq->lesConnexions().value(64), connexion.data());
        QCOMPARE(appli->mesure(64), 999999.5);
    }

    void demandeEnregistrement()
    {
        // Without a copy of the module table the request waits for a later cycle.
        appli->detruireZone("Zone_HF");
        appli->setOctetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO, 1);
        QVERIFY(cycle().contains("recuperer_mesures : Demande d'enregistrement ..."));
        QCOMPARE(appli->octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(1));
        QVERIFY(appli->creerZone("Zone_HF"));
        acq->serveurUdp().traiterDatagram("A0011:BR:260:215:36");
        Champs::ecrireNombre<qint32>(appli->donnees("Zone_HF") + 212, 1700000123); // battery date
        const QStringList traces = cycle().filter("recuperer_mesures : setModuleBD ");
        QCOMPARE(appli->octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(0));
        QCOMPARE(traces.size(), 100);
        QCOMPARE(traces.first(), "recuperer_mesures : setModuleBD 0 0011 1700000123 1");
    }

    void tauxChaqueHeureMemeApresRetourEnArriere()
    {
        const qint64 t = Horloge::maintenantSecondes();
        const auto apres = [this](qint64 secondes) {
            Horloge::avancer(secondes);
            cycle();
            return base("select dateheure_mesure_taux from mesures_taux order by rowid");
        };
        QCOMPARE(apres(0), QStringList{QString::number(t)});
        QCOMPARE(apres(3599).size(), 1);
        QCOMPARE(apres(1).last(), QString::number(t + 3600));
        Horloge::figer(QDateTime::fromSecsSinceEpoch(t - 86400));
        QCOMPARE(apres(0).size(), 2);
        QCOMPARE(apres(3599).size(), 2);
        QCOMPARE(apres(1).last(), QString::number(t - 86400 + 3600));
    }
};

QTEST_GUILESS_MAIN(TestCycle)
#include "tst_cycle.moc"
