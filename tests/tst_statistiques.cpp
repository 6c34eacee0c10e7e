#include "bancserveur.h"

#include <QtTest>

#include <cstring>

// Reception and usage rates computed from the last hour of frames, their
// hourly record, and the trimming of the frame history.
class TestStatistiques : public QObject
{
    Q_OBJECT
private slots:
    void tauxDUnModule_data();
    void tauxDUnModule();
    void seulsLesModulesPresents();
    void sansTableDesModules();
    void enregistrementDesTaux();
    void erreurEnregistrementDesTaux();
    void historiqueLimiteAUneHeure();
};

namespace {

// Byte offsets of the two rates in a 216-byte module record of "Zone_HF".
const int MODULE = 216;
const int TAUX_RECEPTION = 192;
const int TAUX_UTILISATION = 200;

gestion_radio module(const QByteArray &numero, char present, double reception = 7.0,
                     double utilisation = 8.0)
{
    gestion_radio gr;
    std::memset(&gr, 0, sizeof gr);
    gr.present = present;
    Champs::ecrireTexte(gr.numero, gestion_radio::LARGEUR_NUMERO, numero, 49);
    gr.taux_reception = reception;
    gr.taux_utilisation = utilisation;
    return gr;
}

double taux(const DoublureApplication &appli, int slot, int offset)
{
    double valeur;
    std::memcpy(&valeur, appli.octetsZoneHF().constData() + slot * MODULE + offset, sizeof valeur);
    return valeur;
}

// Frames as "age:module:parent:current_rank", oldest first.
void ajouterTrames(QServeurUdp &serveur, const QStringList &trames)
{
    for (const QString &trame : trames) {
        const QStringList p = trame.split(QLatin1Char(':'));
        serveur.ajouterInfoTrame(QServeurUdp::_info_trame(
            QDateTime::fromSecsSinceEpoch(BancServeur::MAINTENANT - p.at(0).toLongLong()), p.at(1),
            p.at(3).toDouble(), p.at(2), -1));
    }
}

} // namespace

void TestStatistiques::tauxDUnModule_data()
{
    QTest::addColumn<QStringList>("trames");
    QTest::addColumn<double>("reception");
    QTest::addColumn<double>("utilisation");
    QTest::addColumn<QString>("message");

    QTest::newRow("une seule trame") << QStringList{"10:12:P:5"} << -1.0 << -1.0
                                     << "12 current_rank=5 err=0 erru=0 ok=0 taux_utilisation=-1";
    QTest::newRow("aucune trame du module")
        << QStringList{"10:13:P:5", "5:123:P:5"} << -1.0 << -1.0
        << "12 current_rank=0 err=0 erru=0 ok=0 taux_utilisation=-1";
    QTest::newRow("toutes les 45 s")
        << QStringList{"90:12:P:0", "45:12:P:0", "0:12:P:0"} << 100.0 << 0.0
        << "12 current_rank=0 err=0 erru=0 ok=2 taux_utilisation=0";
    QTest::newRow("autres modules intercales")
        << QStringList{"90:12:P:0", "60:13:Q:40", "45:12:P:0", "30:123:R:40", "0:12:P:0"} << 100.0
        << 0.0 << "12 current_rank=0 err=0 erru=0 ok=2 taux_utilisation=0";
    QTest::newRow("63 s: a l'heure") << QStringList{"63:12:P:0", "0:12:P:0"} << 100.0 << 0.0
                                     << "12 current_rank=0 err=0 erru=0 ok=1 taux_utilisation=0";
    QTest::newRow("64 s: une trame perdue")
        << QStringList{"64:12:P:0", "0:12:P:0"} << 0.0 << 100.0
        << "12 current_rank=0 err=1 erru=0 ok=0 taux_utilisation=100";
    QTest::newRow("90 s: deux trames perdues")
        << QStringList{"90:12:P:0", "0:12:P:0"} << 0.0 << 100.0
        << "12 current_rank=0 err=2 erru=0 ok=0 taux_utilisation=100";
    QTest::newRow("trous et trames a l'heure")
        << QStringList{"180:12:P:0", "135:12:P:0", "45:12:P:0", "0:12:P:0"} << 50.0 << 50.0
        << "12 current_rank=0 err=2 erru=0 ok=2 taux_utilisation=50";
    QTest::newRow("changement de parent et rank 13")
        << QStringList{"45:12:A:13", "0:12:B:13"} << 100.0 << 100.0 - 100.0 / 2.2
        << "12 current_rank=13 err=0 erru=1.2 ok=1 taux_utilisation=54.5455";
    QTest::newRow("rank 26 sous le meme parent")
        << QStringList{"45:12:P:26", "0:12:P:26"} << 100.0 << 100.0 - 100.0 / 1.4
        << "12 current_rank=26 err=0 erru=0.4 ok=1 taux_utilisation=28.5714";
    QTest::newRow("rank negatif sans poids")
        << QStringList{"45:12:P:-20", "0:12:P:-7"} << 100.0 << 0.0
        << "12 current_rank=-20 err=0 erru=0 ok=1 taux_utilisation=0";
    QTest::newRow("trame datee apres la suivante: a l'heure")
        << QStringList{"0:12:P:0", "30:12:P:0"} << 100.0 << 0.0
        << "12 current_rank=0 err=0 erru=0 ok=1 taux_utilisation=0";
}

void TestStatistiques::tauxDUnModule()
{
    QFETCH(QStringList, trames);
    QFETCH(double, reception);
    QFETCH(double, utilisation);
    QFETCH(QString, message);

    BancServeur banc;
    banc.appli.ecrireModule(3, module("12", 1));
    ajouterTrames(*banc.serveur, trames);
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->calculerTauxInfosTrames();

    QCOMPARE(taux(banc.appli, 3, TAUX_RECEPTION), reception);
    QCOMPARE(taux(banc.appli, 3, TAUX_UTILISATION), utilisation);
    QCOMPARE(BancServeur::messages(capture), QStringList({"début calculerTauxInfosTrames", message,
                                                          "fin calculerTauxInfosTrames"}));
}

void TestStatistiques::seulsLesModulesPresents()
{
    BancServeur banc;
    banc.appli.ecrireModule(0, module("12", 1));
    banc.appli.ecrireModule(1, module("13", 0));
    banc.appli.ecrireModule(2, module("14", 1));
    ajouterTrames(*banc.serveur,
                  {"45:12:P:0", "45:13:P:0", "45:15:P:0", "0:13:P:0", "0:12:P:0", "0:15:P:0"});
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->calculerTauxInfosTrames();

    QCOMPARE(taux(banc.appli, 0, TAUX_RECEPTION), 100.0);
    // A removed module keeps its last rates.
    QCOMPARE(taux(banc.appli, 1, TAUX_RECEPTION), 7.0);
    QCOMPARE(taux(banc.appli, 1, TAUX_UTILISATION), 8.0);
    QCOMPARE(taux(banc.appli, 2, TAUX_RECEPTION), -1.0);
    QCOMPARE(taux(banc.appli, 2, TAUX_UTILISATION), -1.0);
    QCOMPARE(BancServeur::messages(capture),
             QStringList({"début calculerTauxInfosTrames",
                          "12 current_rank=0 err=0 erru=0 ok=1 taux_utilisation=0",
                          "14 current_rank=0 err=0 erru=0 ok=0 taux_utilisation=-1",
                          "fin calculerTauxInfosTrames"}));
    // The history is left as it was.
    QCOMPARE(banc.serveur->copieInfosTrame().size(), 6);
}

void TestStatistiques::sansTableDesModules()
{
    BancServeur banc;
    banc.appli.detruireZone(QStringLiteral("Zone_HF"));
    ajouterTrames(*banc.serveur, {"45:12:P:0", "0:12:P:0"});
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->calculerTauxInfosTrames();
    banc.serveur->enregistrerTaux();
    const QStringList messages = BancServeur::messages(capture);
    QCOMPARE(messages.mid(0, 2),
             QStringList({"début calculerTauxInfosTrames", "fin calculerTauxInfosTrames"}));
    QCOMPARE(banc.requete("select count(*) from mesures_taux"), QStringList{"0"});
}

void TestStatistiques::enregistrementDesTaux()
{
    BancServeur banc;
    banc.appli.ecrireModule(0, module("12", 1, 87.5, 12.25));
    banc.appli.ecrireModule(1, module("13", 0, 50.0, 50.0));
    banc.appli.ecrireModule(4, module("a'b", 1, -1.0, -1.0));
    banc.serveur->setLog();

    CaptureLog capture;
    banc.serveur->enregistrerTaux();
    const QStringList parModule = {"query(db)", "query.exec", "après query.exec"};
    QStringList attendu{
        "début enregistrerTaux", "enregistrerTaux QSqlDatabase::contains(\"hf_enregistrerTaux\")",
        "enregistrerTaux QSqlDatabase::addDatabase(\"QSQLITE\", \"hf_enregistrerTaux\")",
        "enregistrerTaux setDatabaseName", "enregistrerTaux après this->db.open()"};
    for (const QString &numero : QStringList{"12", "a'b"}) {
        for (const QString &etape : parModule)
            attendu << QStringLiteral("enregistrerTaux module %1 %2").arg(numero, etape);
    }
    attendu << "enregistrerTaux db.close()"
            << "enregistrerTaux après db.close()"
            << "fin enregistrerTaux";
    QCOMPARE(BancServeur::messages(capture), attendu);

    // An hour later the same connection is found again.
    Horloge::avancer(3600);
    capture.vider();
    banc.serveur->enregistrerTaux();
    attendu.replace(2, "enregistrerTaux QSqlDatabase::database(\"hf_enregistrerTaux\")");
    attendu.removeAt(3);
    QCOMPARE(BancServeur::messages(capture), attendu);

    QCOMPARE(banc.requete("select module, dateheure_mesure_taux, taux_reception, "
                          "taux_utilisation from mesures_taux order by dateheure_mesure_taux, "
                          "module"),
             QStringList({"12|1700000000|87.5|12.25", "a'b|1700000000|-1|-1",
                          "12|1700003600|87.5|12.25", "a'b|1700003600|-1|-1"}));
}

void TestStatistiques::erreurEnregistrementDesTaux()
{
    BancServeur banc;
    banc.appli.ecrireModule(0, module("12", 1));
    banc.requete("drop table mesures_taux");
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->enregistrerTaux();
    const QStringList erreurs = BancServeur::messages(capture).filter("Erreur");
    QCOMPARE(erreurs.size(), 1);
    QVERIFY2(erreurs.at(0).startsWith(
                 "enregistrerTaux Erreur ajout mesures_taux : 1 : no such table: mesures_taux"),
             qPrintable(erreurs.at(0)));
}

void TestStatistiques::historiqueLimiteAUneHeure()
{
    BancServeur banc;
    // Arrival order is not time order: the whole list is looked at.
    ajouterTrames(*banc.serveur, {"10:a:P:0", "4000:b:P:0", "3600:c:P:0", "3601:d:P:0", "0:e:P:0",
                                  "-50:f:P:0", "7200:g:P:0"});
    banc.serveur->setLog();
    CaptureLog capture;
    banc.serveur->supprimerAnciennesInfosTrames();

    QStringList restants;
    const QList<QServeurUdp::_info_trame> infos = banc.serveur->copieInfosTrame();
    for (const QServeurUdp::_info_trame &info : infos)
        restants << info.module;
    QCOMPARE(restants, QStringList({"a", "c", "e", "f"}));
    QCOMPARE(BancServeur::messages(capture),
             QStringList({"début supprimerAnciennesInfosTrames (taille=7)",
                          "fin supprimerAnciennesInfosTrames (taille=4)"}));

    // One second later the entry exactly an hour old goes too.
    Horloge::avancer(1);
    banc.serveur->supprimerAnciennesInfosTrames();
    QCOMPARE(banc.serveur->copieInfosTrame().size(), 3);
}

QTEST_GUILESS_MAIN(TestStatistiques)
#include "tst_statistiques.moc"
