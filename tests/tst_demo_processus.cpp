#include "bacasable.h"

#include "radio/demande_enregistrement.h"
#include "radio/etat.h"
#include "radio/gestion_radio.h"
#include "radio/le_tessalin.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSharedMemory>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QUdpSocket>
#include <QtTest>

#include <cstring>
#include <memory>

using namespace Demande_enregistrement;

// The three programs together, as on the bench: the appliance simulator
// holds the segments and the device database, the network simulator sends
// real frames, and the daemon runs its cycle every second between them. This
// process only looks at the segments, byte by byte, and types commands into
// the appliance simulator.
class TestDemoProcessus : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void chaqueVoieRadioPublieeAvecSonOffset();
    void adresseBRPubliee();
    void demandeEnregistrementServie();
    void voieDevenueNonRadioNEstPlusEcrite();
    void arretPropreSansSegmentRestant();

private:
    uchar *zone(const char *cle);
    double mesure(int voie) { return Etat::mesure(zone(Etat::CLE), voie); }
    void setMesure(int voie, double v) { Etat::setMesure(zone(Etat::CLE), voie, v); }
    uchar octetDemande(int offset) { return zone(CLE)[offset]; }
    // Waits until the daemon has begun a cycle after this call.
    bool attendreUnCycle();
    bool commande(const QString &ligne, const QString &reponse);
    QStringList requete(const QString &sql) const;
    QString journaux();

    BacASable bac;
    quint16 port = 0;
    QProcess appareil;
    QProcess reseau;
    QProcess daemon;
    QByteArray sortieAppareil;
    QMap<QByteArray, std::shared_ptr<QSharedMemory>> zones;
};

namespace {
const QString OUTILS = QStringLiteral(REPERTOIRE_OUTILS);
constexpr int DELAI_MS = 20000;

// Channel -> what its module sends, as the main application configures it.
const char *const CONFIGURATION_APPAREIL = R"(type Aucun
type PT100
type RADIO
type "RADIO Contact"
voie 1 RADIO 00000011 0
voie 2 RADIO 00000012:parametre 1 1.5
voie 3 "RADIO Contact" 00000013 0
voie 4 "RADIO Contact" 00000013 1
voie 5 RADIO 00000013 2
voie 6 RADIO 00000021 0 -1
voie 7 PT100 "" 0
)";

const char *const CONFIGURATION_RESEAU = R"(module=00000011 parent=BR type=A periode=1 valeur=21.5
module=00000012 parent=BR type=B periode=1 valeur=20.1 valeur2=-5.2 batterie=3.3
module=00000013 parent=00000011 type=E periode=1 valeur=0.5 valeur2=0 batterie=3.6 alim=1
module=00000021 parent=00000013 type=A periode=1 valeur=-18.5
)";

struct Attendu
{
    int voie;
    double valeur;
};
const Attendu ATTENDUS[] = {{1, 21.5}, {2, -5.2 + 1.5}, {3, 1.0}, {4, 1.0}, {5, 3.6}, {6, -19.5}};
constexpr int VOIE_FILAIRE = 7;
constexpr double SENTINELLE = 99.25;

bool ecrireFichier(const QString &chemin, const QByteArray &contenu)
{
    QFile fichier(chemin);
    return fichier.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           fichier.write(contenu) == contenu.size();
}
} // namespace

void TestDemoProcessus::initTestCase()
{
    for (const QString &outil :
         {QStringLiteral("simulateur_appareil"), QStringLiteral("simulateur_reseau")}) {
        const QString chemin = OUTILS + QLatin1Char('/') + outil + QLatin1Char('/') + outil;
        QVERIFY2(QFile::exists(chemin), qPrintable(chemin + " is not built (make " + outil + ")"));
    }
    QVERIFY(bac.estValide());
    port = BacASable::portLibre();
    QVERIFY(port != 0);
    // This process shares the sandbox's TMPDIR, hence its segments.
    bac.activer(port);
    const QString repertoire = QFileInfo(bac.racine()).absolutePath();
    QVERIFY(ecrireFichier(repertoire + "/appareil.conf", CONFIGURATION_APPAREIL));
    QVERIFY(ecrireFichier(repertoire + "/reseau.conf", CONFIGURATION_RESEAU));
    QVERIFY(ecrireFichier(bac.chemin("/root/br_itessalin.txt"), "fd00::1\n"));

    const QProcessEnvironment env = bac.environnement(port);
    appareil.setProcessEnvironment(env);
    appareil.setProcessChannelMode(QProcess::MergedChannels);
    connect(&appareil, &QProcess::readyRead, this,
            [this] { sortieAppareil += appareil.readAll(); });
    appareil.start(OUTILS + "/simulateur_appareil/simulateur_appareil",
                   {"--sans-tableau", "--config", repertoire + "/appareil.conf"});
    QTRY_VERIFY_WITH_TIMEOUT(sortieAppareil.contains("pret\n"), DELAI_MS);
    for (const char *cle : {Demande_enregistrement::CLE, Etat::CLE, Le_Tessalin::CLE, "Zone_HF"})
        QVERIFY2(zone(cle), cle);
    setMesure(VOIE_FILAIRE, SENTINELLE);

    reseau.setProcessEnvironment(env);
    reseau.setProcessChannelMode(QProcess::MergedChannels);
    reseau.start(OUTILS + "/simulateur_reseau/simulateur_reseau",
                 {"--config", repertoire + "/reseau.conf", "--adresse", "::1", "--port",
                  QString::number(port)});
    QVERIFY(reseau.waitForStarted());

    daemon.setProcessEnvironment(env);
    daemon.setProcessChannelMode(QProcess::MergedChannels);
    daemon.start(CHEMIN_DAEMON, {"-log", "-periode", "1"});
    QVERIFY(daemon.waitForStarted());
}

void TestDemoProcessus::cleanupTestCase()
{
    zones.clear();
    for (QProcess *processus : {&daemon, &reseau, &appareil}) {
        if (processus->state() != QProcess::NotRunning) {
            processus->kill();
            processus->waitForFinished();
        }
    }
}

uchar *TestDemoProcessus::zone(const char *cle)
{
    auto &segment = zones[QByteArray(cle)];
    if (!segment) {
        segment = std::make_shared<QSharedMemory>(QString::fromLatin1(cle));
        if (!segment->attach(QSharedMemory::ReadWrite)) {
            segment.reset();
            zones.remove(QByteArray(cle));
            return nullptr;
        }
    }
    return static_cast<uchar *>(segment->data());
}

bool TestDemoProcessus::attendreUnCycle()
{
    zone(CLE)[OFFSET_ACQUISITIONRADIO_FONCTIONNE] = 0;
    return QTest::qWaitFor([this] { return octetDemande(OFFSET_ACQUISITIONRADIO_FONCTIONNE) == 1; },
                           DELAI_MS);
}

bool TestDemoProcessus::commande(const QString &ligne, const QString &reponse)
{
    sortieAppareil.clear();
    appareil.write((ligne + QLatin1Char('\n')).toUtf8());
    return QTest::qWaitFor(
        [this, &reponse] { return QString::fromUtf8(sortieAppareil).contains(reponse); }, DELAI_MS);
}

QStringList TestDemoProcessus::requete(const QString &sql) const
{
    QStringList lignes;
    {
        QSqlDatabase base = QSqlDatabase::addDatabase("QSQLITE", "verification");
        base.setDatabaseName(bac.chemin("/var/base/hf.db"));
        if (base.open()) {
            QSqlQuery query(base);
            query.exec(sql);
            while (query.next())
                lignes << query.value(0).toString() + '|' + query.value(1).toString();
            base.close();
        }
    }
    QSqlDatabase::removeDatabase("verification");
    return lignes;
}

QString TestDemoProcessus::journaux()
{
    return QStringLiteral("--- daemon ---\n%1\n--- network ---\n%2")
        .arg(QString::fromUtf8(daemon.readAll().right(4000)),
             QString::fromUtf8(reseau.readAll().right(1000)));
}

void TestDemoProcessus::chaqueVoieRadioPublieeAvecSonOffset()
{
    // The first values, once the daemon is up and frames flow.
    for (const Attendu &a : ATTENDUS) {
        QTRY_COMPARE_WITH_TIMEOUT(mesure(a.voie), a.valeur, DELAI_MS);
    }
    QCOMPARE(octetDemande(OFFSET_ACQUISITIONRADIO_FONCTIONNE), uchar(1));

    // From then on every cycle writes them again: overwritten values come
    // back within two cycles, while the wired channel is never touched.
    for (const Attendu &a : ATTENDUS)
        setMesure(a.voie, SENTINELLE);
    QVERIFY(attendreUnCycle());
    QVERIFY(attendreUnCycle());
    for (const Attendu &a : ATTENDUS)
        QVERIFY2(qFuzzyCompare(mesure(a.voie), a.valeur),
                 qPrintable(QStringLiteral("channel %1: %2\n%3")
                                .arg(a.voie)
                                .arg(mesure(a.voie))
                                .arg(journaux())));
    QCOMPARE(mesure(VOIE_FILAIRE), SENTINELLE);
}

void TestDemoProcessus::adresseBRPubliee()
{
    QTRY_COMPARE_WITH_TIMEOUT(Le_Tessalin::adresse_br(zone(Le_Tessalin::CLE)),
                              QByteArray("fd00::1\n"), DELAI_MS);
    QCOMPARE(octetDemande(OFFSET_CONFIG_MODIFIEE), uchar(1));
}

void TestDemoProcessus::demandeEnregistrementServie()
{
    // Two modules heard once, then silent: nothing rewrites their slots while
    // the main application changes them.
    QUdpSocket socket;
    for (const char *trame : {"A00000098:BR:260:100:36", "A00000099:BR:260:100:36"})
        QCOMPARE(socket.writeDatagram(trame, QHostAddress::LocalHostIPv6, port),
                 qint64(qstrlen(trame)));
    const QString sql = QStringLiteral("select module, date_changement_pile from modules "
                                       "where module in ('00000098', '00000099') order by module");
    QTRY_COMPARE_WITH_TIMEOUT(requete(sql), (QStringList{"00000098|-1", "00000099|-1"}), DELAI_MS);

    QVERIFY(commande("pile 00000098 1700000123", "battery changed at 1700000123"));
    QVERIFY(commande("retirer 00000099", "marked for removal"));
    QVERIFY(commande("enregistrer", "save request raised"));

    QTRY_COMPARE_WITH_TIMEOUT(octetDemande(OFFSET_ENREGISTRER_DONNEES_RADIO), uchar(0), DELAI_MS);
    QCOMPARE(requete(sql), QStringList{"00000098|1700000123"});
}

void TestDemoProcessus::voieDevenueNonRadioNEstPlusEcrite()
{
    QVERIFY(commande("voie 1 PT100 00000011 0 0", "channel 1: type 1 (PT100)"));
    // A cycle begun after the change drops the channel; the one after it
    // publishes without it.
    QVERIFY(attendreUnCycle());
    QVERIFY(attendreUnCycle());
    setMesure(1, SENTINELLE);
    setMesure(2, SENTINELLE);
    QVERIFY(attendreUnCycle());
    QVERIFY(attendreUnCycle());
    QCOMPARE(mesure(1), SENTINELLE);
    QCOMPARE(mesure(2), -5.2 + 1.5);
}

void TestDemoProcessus::arretPropreSansSegmentRestant()
{
    zones.clear();
    daemon.terminate();
    QVERIFY(daemon.waitForFinished(DELAI_MS));
    reseau.terminate();
    QVERIFY(reseau.waitForFinished(DELAI_MS));
    QCOMPARE(reseau.exitStatus(), QProcess::NormalExit);
    QCOMPARE(reseau.exitCode(), 0);
    appareil.terminate();
    QVERIFY(appareil.waitForFinished(DELAI_MS));
    QCOMPARE(appareil.exitStatus(), QProcess::NormalExit);
    QCOMPARE(appareil.exitCode(), 0);
    QVERIFY(sortieAppareil.endsWith("arret\n"));
    // Qt removes a segment's key file with the segment itself.
    QCOMPARE(QDir(bac.tmp()).entryList({"qipc_*"}, QDir::Files | QDir::System), QStringList());
    QSharedMemory etat(QString::fromLatin1(Etat::CLE));
    QVERIFY(!etat.attach(QSharedMemory::ReadOnly));
}

QTEST_GUILESS_MAIN(TestDemoProcessus)
#include "tst_demo_processus.moc"
