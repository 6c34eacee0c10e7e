// Radio reception seen from outside the daemon: real UDP datagrams sent to
// the running service end up in "Zone_HF", in `modules` and in `mesures_hf`;
// garbage does not stop it; and, where this machine allows it, the service
// binds the appliance's own address inside a network namespace of its own.

#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include "udp/qserveurudp.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QUdpSocket>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <memory>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace AideReception;

namespace {

// Exit status of the namespace script when the address cannot be set up.
const int SANS_ESPACE_RESEAU = 97;

// Run inside the namespace by the test's own binary: sends `trame` to
// [adresse]:port every 200 ms, at most `fois` times, and stops with the
// process that started it.
int envoyerEnBoucle(const char *adresse, const char *port, const char *trame, const char *fois)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    sockaddr_in6 destination;
    std::memset(&destination, 0, sizeof destination);
    destination.sin6_family = AF_INET6;
    destination.sin6_port = htons(static_cast<quint16>(std::atoi(port)));
    if (::inet_pton(AF_INET6, adresse, &destination.sin6_addr) != 1)
        return 2;
    const int s = ::socket(AF_INET6, SOCK_DGRAM, 0);
    if (s < 0)
        return 3;
    const int n = std::atoi(fois);
    for (int i = 0; i < n; ++i) {
        // Refused until the daemon has bound: that is what the repeats are for.
        ::sendto(s, trame, std::strlen(trame), 0, reinterpret_cast<sockaddr *>(&destination),
                 sizeof destination);
        ::usleep(200000);
    }
    ::close(s);
    return 0;
}

// The kernel's line for the UDP socket bound to `port` in a network
// namespace's table ("/proc/net/udp6" for this test's own), split in fields;
// empty when no such socket is there.
QList<QByteArray> socketUdp(quint16 port,
                            const QString &tableUdp = QStringLiteral("/proc/net/udp6"))
{
    QFile table(tableUdp);
    if (!table.open(QIODevice::ReadOnly))
        return {};
    const QList<QByteArray> lignesTable = table.readAll().split('\n');
    for (const QByteArray &ligne : lignesTable) {
        const QList<QByteArray> champs = ligne.simplified().split(' ');
        if (champs.size() < 5)
            continue;
        const QList<QByteArray> local = champs.at(1).split(':');
        bool ok = false;
        if (local.size() == 2 && local.at(1).toUInt(&ok, 16) == port && ok)
            return champs;
    }
    return {};
}

// Bytes waiting in the receive queue of the socket bound to `port`, or -1
// when no such socket is there.
qint64 fileDeReception(quint16 port)
{
    const QList<QByteArray> champs = socketUdp(port);
    if (champs.isEmpty())
        return -1;
    const QList<QByteArray> files = champs.at(4).split(':');
    return files.size() == 2 ? files.at(1).toLongLong(nullptr, 16) : -1;
}

// An IPv6 address as the kernel's socket tables print it: four 32-bit words
// in the machine's order, in hexadecimal.
QByteArray adresseCommeLeNoyau(const QString &adresse)
{
    in6_addr octets;
    if (::inet_pton(AF_INET6, adresse.toLatin1().constData(), &octets) != 1)
        return {};
    QByteArray texte;
    for (int i = 0; i < 4; ++i) {
        quint32 mot = 0;
        std::memcpy(&mot, reinterpret_cast<const char *>(&octets) + 4 * i, sizeof mot);
        texte += QByteArray::number(mot, 16).rightJustified(8, '0').toUpper();
    }
    return texte;
}

} // namespace

class TestReceptionProcessus : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void tramesDeChaqueTypeArriventPartout();
    void datagrammesAleatoiresNArretentPasLeDaemon();
    void adresseParDefautDansUnEspaceReseauPropre();

private:
    void demarrer(const QStringList &arguments);
    void envoyer(const QByteArray &datagramme);
    QString journal() const;
    int slot(const QByteArray &numero) const { return slotDe(doublure.octetsZoneHF(), numero); }
    QString base() const { return bac.chemin(QStringLiteral("/var/base/hf.db")); }

    BacASable bac;
    DoublureApplication doublure;
    quint16 port = 0;
    std::unique_ptr<QProcess> daemon;
    QUdpSocket emetteur;
};

void TestReceptionProcessus::initTestCase()
{
    QVERIFY(bac.estValide());
    QString erreur;
    QVERIFY2(DoublureApplication::creerBaseAppareil(
                 bac.chemin(QStringLiteral("/var/base/itessalin.db")),
                 {QStringLiteral("RJ45"), QStringLiteral("RADIO"), QStringLiteral("RADIO Contact")},
                 &erreur),
             qPrintable(erreur));
    // The segments are made in the sandbox's shared-memory directory, which
    // the daemon is given too.
    bac.activer(0);
    QVERIFY2(doublure.creerZones(&erreur), qPrintable(erreur));
}

void TestReceptionProcessus::init()
{
    std::memset(doublure.donnees(QStringLiteral("Zone_HF")), 0, 21600);
    QFile::remove(base());
}

void TestReceptionProcessus::cleanup()
{
    if (daemon) {
        daemon->kill();
        daemon->waitForFinished();
        if (QTest::currentTestFailed())
            qWarning().noquote() << "daemon log:\n" << journal().right(4000);
        daemon.reset();
    }
}

QString TestReceptionProcessus::journal() const
{
    QFile fichier(bac.chemin(QStringLiteral("/daemon.log")));
    return fichier.open(QIODevice::ReadOnly) ? QString::fromUtf8(fichier.readAll()) : QString();
}

void TestReceptionProcessus::demarrer(const QStringList &arguments)
{
    port = BacASable::portLibre();
    QVERIFY(port != 0);
    daemon = std::make_unique<QProcess>();
    daemon->setProcessEnvironment(bac.environnement(port));
    daemon->setStandardErrorFile(bac.chemin(QStringLiteral("/daemon.log")));
    daemon->start(QStringLiteral(CHEMIN_DAEMON), arguments);
    QVERIFY2(daemon->waitForStarted(), qPrintable(daemon->errorString()));
    // The tunnel restart comes before the socket: wait for the port to be
    // taken before sending anything.
    QTRY_VERIFY_WITH_TIMEOUT(fileDeReception(port) >= 0, 20000);
}

void TestReceptionProcessus::envoyer(const QByteArray &datagramme)
{
    QCOMPARE(emetteur.writeDatagram(datagramme, QHostAddress(QHostAddress::LocalHostIPv6), port),
             qint64(datagramme.size()));
}

void TestReceptionProcessus::tramesDeChaqueTypeArriventPartout()
{
    demarrer({QStringLiteral("-log")});
    const qint64 debut = QDateTime::currentSecsSinceEpoch();

    struct Attendu
    {
        QByteArray trame;
        QByteArray numero;
        QByteArray valeur;
        double pile;
        int alim;
    };
    const QList<Attendu> attendus = {
        {"A101:br:20:215:36", "101", "21.5", 3.6, 0},
        {"B102:br:20:201:-52:36", "102", "20.1:-5.2", 3.6, 0},
        {"C103:br:20:-7:30", "103", "-0.7", 3.0, 0},
        {"D104:br:20:1000:5:29", "104", "100:0.5", 2.9, 0},
        {"E105:br:20:201:455:33:1", "105", "20.1:45.5", 3.3, 1},
        {"F106:br:20:1234567", "106", "123457", 0.0, 0},
        {"G107:br:20:5:12", "107", "0.5", 1.2, 0},
        {"R108:br:20:36", "108", "", 3.6, 0},
        {"Z109:br:20", "109", "", 0.0, 0},
    };
    // Twice: a module's first frame finds it absent from the table, the
    // second finds it hanging under the appliance.
    for (int tour = 0; tour < 2; ++tour) {
        for (const Attendu &a : attendus)
            envoyer(a.trame);
    }
    QTRY_VERIFY_WITH_TIMEOUT(lignes(base(), QStringLiteral("select count(*) from mesures_hf"))
                                     .value(0)
                                     .value(0)
                                     .toInt() == 2 * attendus.size(),
                             20000);
    const qint64 fin = QDateTime::currentSecsSinceEpoch();

    const QByteArray z = doublure.octetsZoneHF();
    for (const Attendu &a : attendus) {
        const int i = slotDe(z, a.numero);
        QVERIFY2(i >= 0, a.numero.constData());
        QCOMPARE(z.at(i * TAILLE_SLOT + OFFSET_PRESENT), '\1');
        QCOMPARE(texte(z, i, OFFSET_PARENT, 50), QByteArray("br"));
        QCOMPARE(texte(z, i, OFFSET_TYPE, 2), a.trame.left(1));
        QCOMPARE(texte(z, i, OFFSET_VALEUR, 50), a.valeur);
        QCOMPARE(nombre<double>(z, i, OFFSET_PILE), a.pile);
        QCOMPARE(nombre<double>(z, i, OFFSET_RANK), 2.0);
        QCOMPARE(nombre<qint32>(z, i, OFFSET_NB_SAUTS), 1);
        QCOMPARE(nombre<double>(z, i, OFFSET_CURRENT_RANK), 2.0 - 13.0);
        const quint32 date = nombre<quint32>(z, i, OFFSET_DATEHEURE);
        QVERIFY(date >= debut && date <= fin);
        QCOMPARE(nombre<qint32>(z, i, OFFSET_DATE_CHANGEMENT_PILE), -1);

        const QString module = QString::fromLatin1(a.numero);
        const QList<QVariantList> rangee =
            lignes(base(), QStringLiteral("select parent, type, rank, batterie, valeur, "
                                          "date_changement_pile from modules where module = '%1'")
                               .arg(module));
        QCOMPARE(rangee.size(), 1);
        QCOMPARE(rangee.first().at(0).toString(), QStringLiteral("br"));
        QCOMPARE(rangee.first().at(1).toString(), QString::fromLatin1(a.trame.left(1)));
        QCOMPARE(rangee.first().at(2).toDouble(), 2.0);
        QCOMPARE(rangee.first().at(3).toDouble(), a.pile);
        QCOMPARE(rangee.first().at(4).toString(), QString::fromLatin1(a.valeur));
        QCOMPARE(rangee.first().at(5).toInt(), -1);

        const QList<QVariantList> mesures = lignes(
            base(), QStringLiteral("select valeur, batterie, alim, rank from mesures_hf where "
                                   "module = '%1'")
                        .arg(module));
        QCOMPARE(mesures.size(), 2);
        for (const QVariantList &m : mesures) {
            QCOMPARE(m.at(0).toString(), QString::fromLatin1(a.valeur));
            QCOMPARE(m.at(1).toDouble(), a.pile);
            QCOMPARE(m.at(2).toInt(), a.alim);
            QCOMPARE(m.at(3).toDouble(), 2.0);
        }
    }
    // The table made at start-up has no `alim` column: every second frame's
    // update says so.
    QCOMPARE(journal().count(QStringLiteral("Erreur update modules : ")), attendus.size());
    QCOMPARE(daemon->state(), QProcess::Running);
}

void TestReceptionProcessus::datagrammesAleatoiresNArretentPasLeDaemon()
{
    demarrer({});
    envoyer("A900:br:20:100");
    QTRY_VERIFY_WITH_TIMEOUT(slot("900") >= 0, 20000);

    // A fixed seed, so that a failure can be replayed.
    QRandomGenerator hasard(20261115);
    const QByteArray alphabet("ABCDEFGRZXa:::::0123456789-.e' %\\\xc3\xa9\x00\xff", 38);
    const QList<QByteArray> modeles = {"A1:0:20:215:36", "B7:3:15:201:-52:36",
                                       "E7:3:20:201:455:33:1", "R5:1:10:36"};
    const int nbDatagrammes = 3000;
    QElapsedTimer chrono;
    chrono.start();
    for (int i = 0; i < nbDatagrammes; ++i) {
        QByteArray d;
        switch (i % 3) {
        case 0: { // any bytes, now and then longer than the receive buffer
            d.resize(static_cast<int>(hasard.bounded(i % 50 == 0 ? 1500 : 80)));
            for (char &c : d)
                c = static_cast<char>(hasard.bounded(256));
            break;
        }
        case 1: { // frame-like text, modules from a small set
            const int longueur = static_cast<int>(hasard.bounded(40));
            for (int k = 0; k < longueur; ++k)
                d.append(alphabet.at(static_cast<int>(hasard.bounded(alphabet.size()))));
            break;
        }
        default: { // a good frame with a few bytes changed
            d = modeles.at(static_cast<int>(hasard.bounded(modeles.size())));
            const int changes = static_cast<int>(hasard.bounded(4));
            for (int k = 0; k < changes; ++k)
                d[static_cast<int>(hasard.bounded(d.size()))] =
                    alphabet.at(static_cast<int>(hasard.bounded(alphabet.size())));
            break;
        }
        }
        envoyer(d);
        // Keep the daemon's queue short, so that datagrams are decoded
        // rather than dropped by the kernel.
        if (i % 100 == 99)
            QTRY_VERIFY_WITH_TIMEOUT(fileDeReception(port) < 16384, 30000);
    }
    QTRY_VERIFY_WITH_TIMEOUT(fileDeReception(port) == 0, 30000);
    QCOMPARE(daemon->state(), QProcess::Running);

    envoyer("A900:br:20:777");
    QTRY_COMPARE_WITH_TIMEOUT(texte(doublure.octetsZoneHF(), slot("900"), OFFSET_VALEUR, 50),
                              QByteArray("77.7"), 20000);
    QCOMPARE(daemon->state(), QProcess::Running);
    QVERIFY(!journal().contains(QStringLiteral("recvfrom failed")));
    // Many of them went all the way through the module update.
    const int acceptees =
        lignes(base(), QStringLiteral("select count(*) from mesures_hf")).value(0).value(0).toInt();
    QVERIFY2(acceptees > 200, qPrintable(QString::number(acceptees)));
    qInfo("%d datagrams, %d frames accepted, in %lld ms", nbDatagrammes, acceptees,
          static_cast<long long>(chrono.elapsed()));
}

void TestReceptionProcessus::adresseParDefautDansUnEspaceReseauPropre()
{
    if (::geteuid() != 0)
        QSKIP("binding the appliance's address needs root");
    const QString unshare = QStandardPaths::findExecutable(QStringLiteral("unshare"));
    const QString ip = QStandardPaths::findExecutable(
        QStringLiteral("ip"), {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin"),
                               QStringLiteral("/usr/bin"), QStringLiteral("/bin")});
    if (unshare.isEmpty() || ip.isEmpty())
        QSKIP("unshare or ip (iproute2) is not installed");
    if (QProcess::execute(unshare, {QStringLiteral("-n"), QStringLiteral("true")}) != 0)
        QSKIP("network namespaces are not allowed here");

    // Inside its own network namespace the appliance's address can be put on
    // the loopback interface; the daemon binds it by default (no address
    // variable) and a sender started in the same namespace reaches it.
    port = BacASable::portLibre();
    QProcessEnvironment env = bac.environnement(port);
    env.remove(QStringLiteral("ACQUISITIONRADIO_ADRESSE"));
    const QString adresse = QServeurUdp::ADRESSE_DEFAUT;
    const QString script =
        QStringLiteral("\"$1\" addr add \"$2\"/128 dev lo && \"$1\" link set lo up || exit %1\n"
                       "\"$3\" --envoyer-en-boucle \"$2\" \"$4\" A950:br:20:123 100 &\n"
                       "exec \"$5\" -log\n")
            .arg(SANS_ESPACE_RESEAU);
    daemon = std::make_unique<QProcess>();
    daemon->setProcessEnvironment(env);
    daemon->setStandardErrorFile(bac.chemin(QStringLiteral("/daemon.log")));
    daemon->start(unshare,
                  {QStringLiteral("-n"), QStringLiteral("sh"), QStringLiteral("-c"), script,
                   QStringLiteral("sh"), ip, adresse, QCoreApplication::applicationFilePath(),
                   QString::number(port), QStringLiteral(CHEMIN_DAEMON)});
    QVERIFY2(daemon->waitForStarted(), qPrintable(daemon->errorString()));

    QTRY_VERIFY_WITH_TIMEOUT(slot("950") >= 0 || daemon->state() != QProcess::Running, 20000);
    if (daemon->state() != QProcess::Running && daemon->exitCode() == SANS_ESPACE_RESEAU)
        QSKIP(qPrintable(QStringLiteral("the namespace's loopback cannot take the address: ") +
                         journal()));
    QVERIFY(slot("950") >= 0);
    QCOMPARE(texte(doublure.octetsZoneHF(), slot("950"), OFFSET_VALEUR, 50), QByteArray("12.3"));
    // Bound to that address alone, not to every address of the namespace.
    const QList<QByteArray> socket =
        socketUdp(port, QStringLiteral("/proc/%1/net/udp6").arg(daemon->processId()));
    QVERIFY(!socket.isEmpty());
    QCOMPARE(socket.at(1), adresseCommeLeNoyau(adresse) + ':' +
                               QByteArray::number(port, 16).rightJustified(4, '0').toUpper());
}

int main(int argc, char *argv[])
{
    if (argc == 6 && std::strcmp(argv[1], "--envoyer-en-boucle") == 0)
        return envoyerEnBoucle(argv[2], argv[3], argv[4], argv[5]);
    QCoreApplication application(argc, argv);
    TestReceptionProcessus test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_reception_processus.moc"
