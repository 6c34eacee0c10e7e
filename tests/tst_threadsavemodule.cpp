// The background save thread: a reading applied at once, and a pass over the
// queue that applies every queued reading and removes exactly those.

#include "aide_reception.h"
#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"
#include "udp/threadsavemodule.h"

#include <QtTest>

#include <memory>

using namespace AideReception;

class TestThreadSaveModule : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void ajouterModuleAppliqueSansFile();
    void unPassageVideLaFile();
    void fileVideNeFaitRien();

private:
    QStringList modulesAppliques() const;

    const QDateTime instant{QDate(2026, 11, 15), QTime(12, 38, 33)};
    BacASable bac;
    DoublureApplication doublure;
    std::unique_ptr<QServeurUdp> serveur;
    std::unique_ptr<CaptureLog> capture;
};

void TestThreadSaveModule::initTestCase()
{
    QVERIFY(bac.estValide());
    Horloge::figer(instant);
    bac.activer(0);
    QString erreur;
    QVERIFY2(doublure.creerZones(&erreur), qPrintable(erreur));
    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    capture = std::make_unique<CaptureLog>();
}

void TestThreadSaveModule::init()
{
    capture->vider();
}

void TestThreadSaveModule::cleanupTestCase()
{
    capture.reset();
    serveur.reset();
    Horloge::liberer();
}

QStringList TestThreadSaveModule::modulesAppliques() const
{
    QStringList modules;
    const QString fin = QStringLiteral("setModule fin traitement classique ");
    const QStringList lignes = capture->contenant(fin);
    for (const QString &ligne : lignes)
        modules.append(ligne.mid(ligne.indexOf(fin) + fin.size()));
    return modules;
}

void TestThreadSaveModule::ajouterModuleAppliqueSansFile()
{
    ThreadSaveModule sauvegarde(serveur.get());
    DonneesUDP d(instant.addSecs(10), QStringLiteral("B"), QStringLiteral("71"),
                 QStringLiteral("3"), -2.5, QStringLiteral("20.1:-5.2"), 3.6, 1);
    sauvegarde.ajouterModule(&d);

    QCOMPARE(modulesAppliques(), QStringList{QStringLiteral("71")});
    QCOMPARE(sauvegarde.tailleFile(), 0);
    const QByteArray z = doublure.octetsZoneHF();
    const int slot = slotDe(z, "71");
    QVERIFY(slot >= 0);
    // The rank is truncated toward zero on its way to the update.
    QCOMPARE(nombre<double>(z, slot, OFFSET_RANK), -2.0);
    QCOMPARE(nombre<double>(z, slot, OFFSET_PILE), 3.6);
    QCOMPARE(texte(z, slot, OFFSET_VALEUR, 50), QByteArray("20.1:-5.2"));
    QCOMPARE(texte(z, slot, OFFSET_TYPE, 2), QByteArray("B"));
    QCOMPARE(nombre<quint32>(z, slot, OFFSET_DATEHEURE),
             static_cast<quint32>(instant.addSecs(10).toSecsSinceEpoch()));
    QCOMPARE(lignes(bac.chemin(QStringLiteral("/var/base/hf.db")),
                    QStringLiteral("select alim from mesures_hf where module = '71'")),
             (QList<QVariantList>{{1}}));
    // Nothing of this goes through the decoder's list of last readings.
    for (const DonneesUDP &copie : serveur->copieDonneesUDP())
        QVERIFY(copie.module != QStringLiteral("71"));
}

void TestThreadSaveModule::unPassageVideLaFile()
{
    ThreadSaveModule sauvegarde(serveur.get());
    DonneesUDP a(instant, QStringLiteral("A"), QStringLiteral("72"), QStringLiteral("0"), 1.0,
                 QStringLiteral("1"), 0, 0);
    DonneesUDP b(instant, QStringLiteral("A"), QStringLiteral("73"), QStringLiteral("0"), 1.0,
                 QStringLiteral("2"), 0, 0);
    // The same record twice: applied twice, both entries removed.
    sauvegarde.mettreEnFile(&a);
    sauvegarde.mettreEnFile(&b);
    sauvegarde.mettreEnFile(&a);
    QCOMPARE(sauvegarde.tailleFile(), 3);

    QCOMPARE(sauvegarde.traiterFile(), 3);
    QCOMPARE(sauvegarde.tailleFile(), 0);
    QCOMPARE(modulesAppliques(),
             (QStringList{QStringLiteral("72"), QStringLiteral("73"), QStringLiteral("72")}));
    // Removal goes by identity from the front: each record is found at 0.
    QCOMPARE(capture->contenant(QStringLiteral("Suppression j=")).size(), 3);
    QCOMPARE(capture->contenant(QStringLiteral("Suppression j= 0")).size(), 3);
}

void TestThreadSaveModule::fileVideNeFaitRien()
{
    ThreadSaveModule sauvegarde(serveur.get());
    QCOMPARE(sauvegarde.traiterFile(), 0);
    QCOMPARE(capture->lignes().size(), 0);
}

QTEST_GUILESS_MAIN(TestThreadSaveModule)
#include "tst_threadsavemodule.moc"
