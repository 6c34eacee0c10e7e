// The server's UDP socket in this process: opening and binding, what a
// datagram becomes on its way to the decoder, the failure messages, and the
// reopening after a receive error.

#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QUdpSocket>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <memory>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// This process's IPv6 UDP sockets bound to `port` (0: not bound at all).
QList<int> socketsUdp(quint16 port)
{
    QList<int> trouves;
    const QStringList fds =
        QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files | QDir::Dirs);
    for (const QString &fd : fds) {
        sockaddr_in6 adresse;
        socklen_t longueur = sizeof adresse;
        std::memset(&adresse, 0, sizeof adresse);
        const int d = fd.toInt();
        int type = 0;
        socklen_t l = sizeof type;
        if (::getsockname(d, reinterpret_cast<sockaddr *>(&adresse), &longueur) == 0 &&
            adresse.sin6_family == AF_INET6 && ntohs(adresse.sin6_port) == port &&
            ::getsockopt(d, SOL_SOCKET, SO_TYPE, &type, &l) == 0 && type == SOCK_DGRAM)
            trouves.append(d);
    }
    return trouves;
}

// The server's own descriptor, found by the port it is bound to.
int descripteurLiea(quint16 port)
{
    const QList<int> trouves = socketsUdp(port);
    return trouves.isEmpty() ? -1 : trouves.first();
}

QString texteErrno(int erreur)
{
    return QStringLiteral("%1 : %2").arg(erreur).arg(QString::fromLocal8Bit(std::strerror(erreur)));
}

} // namespace

class TestReception : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void ouvreSurLAdresseDuBacASable();
    void dejaOuvertNeRouvrePas();
    void datagrammeJusquauDecodeur_data();
    void datagrammeJusquauDecodeur();
    void portOccupe();
    void socketImpossible();
    void rouvreApresUneErreurDeReception();
    void destructionArreteLaReception();

private:
    void envoyer(const QByteArray &datagramme, quint16 port);
    bool recue(const QString &texte) const;

    const QDateTime instant{QDate(2026, 11, 15), QTime(12, 38, 33)};
    BacASable bac;
    DoublureApplication doublure;
    std::unique_ptr<CaptureLog> capture;
    std::unique_ptr<QServeurUdp> serveur;
    QUdpSocket emetteur;
};

void TestReception::initTestCase()
{
    QVERIFY(bac.estValide());
    Horloge::figer(instant);
    bac.activer(0);
    QString erreur;
    QVERIFY2(doublure.creerZones(&erreur), qPrintable(erreur));
}

void TestReception::init()
{
    Horloge::figer(instant);
    bac.activer(0);
    capture = std::make_unique<CaptureLog>();
}

void TestReception::cleanup()
{
    serveur.reset();
    capture.reset();
}

void TestReception::cleanupTestCase()
{
    Horloge::liberer();
}

void TestReception::envoyer(const QByteArray &datagramme, quint16 port)
{
    QCOMPARE(emetteur.writeDatagram(datagramme, QHostAddress::LocalHostIPv6, port),
             qint64(datagramme.size()));
}

bool TestReception::recue(const QString &texte) const
{
    const QStringList lignes = capture->lignes();
    for (const QString &ligne : lignes) {
        if (ligne.endsWith(QStringLiteral("début traiterDatagram : Trame UDP reçue : ") + texte))
            return true;
    }
    return false;
}

void TestReception::ouvreSurLAdresseDuBacASable()
{
    serveur = std::make_unique<QServeurUdp>();
    QVERIFY(serveur->estOuvert());
    const quint16 port = serveur->portLie();
    QVERIFY(port != 0);
    QVERIFY(descripteurLiea(port) >= 0);
    // Opening is traced only with "-log", which comes after construction.
    QCOMPARE(capture->compter(QStringLiteral("ouvrirSiNonOuvert")), 0);
    QCOMPARE(capture->compter(QStringLiteral("serveur UDP")), 0);
}

void TestReception::dejaOuvertNeRouvrePas()
{
    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    const quint16 port = serveur->portLie();
    capture->vider();
    serveur->ouvrirSiNonOuvert();
    QCOMPARE(capture->lignes().size(), 2);
    QVERIFY(capture->lignes().at(0).endsWith(QStringLiteral("début ouvrirSiNonOuvert")));
    QVERIFY(capture->lignes().at(1).endsWith(QStringLiteral("fin ouvrirSiNonOuvert")));
    QCOMPARE(serveur->portLie(), port);
}

void TestReception::datagrammeJusquauDecodeur_data()
{
    QTest::addColumn<QByteArray>("datagramme");
    QTest::addColumn<QString>("texte");

    QTest::newRow("plain frame") << QByteArray("A61:0:0:215") << "A61:0:0:215";
    QTest::newRow("cut at a zero byte") << QByteArray("A62:0:0:215\0:1:1", 16) << "A62:0:0:215";
    QTest::newRow("zero byte first") << QByteArray("\0A63:0:0:1", 10) << "";
    QTest::newRow("empty datagram") << QByteArray() << "";
    const QByteArray tete = "A64:0:0:";
    const QByteArray remplissage(1500 - tete.size(), '7');
    QTest::newRow("longer than 1024 bytes")
        << QByteArray(tete + remplissage)
        << QString::fromLatin1(tete + remplissage.left(1024 - tete.size()));
    QTest::newRow("exactly 1024 bytes")
        << QByteArray(tete + remplissage.left(1024 - tete.size()))
        << QString::fromLatin1(tete + remplissage.left(1024 - tete.size()));
}

void TestReception::datagrammeJusquauDecodeur()
{
    QFETCH(QByteArray, datagramme);
    QFETCH(QString, texte);

    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    envoyer(datagramme, serveur->portLie());
    QTRY_VERIFY_WITH_TIMEOUT(recue(texte), 10000);
    // One datagram, one frame: nothing of a longer payload comes after.
    QTRY_VERIFY_WITH_TIMEOUT(
        texte.isEmpty() || capture->compter(QStringLiteral("fin traiterDatagram")) == 1, 10000);
    QCOMPARE(capture->compter(QStringLiteral("début traiterDatagram")), 1);
    QCOMPARE(capture->compter(QStringLiteral("recvfrom failed")), 0);
}

void TestReception::portOccupe()
{
    QUdpSocket occupant;
    QVERIFY(occupant.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
    const quint16 port = occupant.localPort();
    bac.activer(port);

    const int avant = socketsUdp(0).size();
    serveur = std::make_unique<QServeurUdp>();
    QVERIFY(!serveur->estOuvert());
    QCOMPARE(serveur->portLie(), quint16(0));
    const QString erreur = texteErrno(EADDRINUSE);
    // Written whatever the log setting.
    QCOMPARE(capture->contenant(QStringLiteral("bind() error : ") + erreur).size(), 1);
    QCOMPARE(capture->compter(QStringLiteral("État du serveur UDP : Non ouvert")), 0);

    // The next cycle tries again, and abandons one more descriptor.
    serveur->setLog();
    capture->vider();
    serveur->ouvrirSiNonOuvert();
    QVERIFY(!serveur->estOuvert());
    QCOMPARE(socketsUdp(0).size(), avant + 2);
    const QStringList lignes = capture->lignes();
    QCOMPARE(lignes.size(), 4);
    QVERIFY(lignes.at(0).endsWith(QStringLiteral("début ouvrirSiNonOuvert")));
    QVERIFY(lignes.at(1).endsWith(
        QStringLiteral("Tentative de création du serveur UDP (socket) sur ::1:5042")));
    QVERIFY(lignes.at(2).endsWith(QStringLiteral("bind() error : ") + erreur));
    QVERIFY(lignes.at(3).endsWith(QStringLiteral("État du serveur UDP : Non ouvert : ") + erreur));

    // Once the port is free, the next attempt opens it and receives.
    occupant.close();
    capture->vider();
    serveur->ouvrirSiNonOuvert();
    QVERIFY(serveur->estOuvert());
    QCOMPARE(serveur->portLie(), port);
    const QStringList ouverture = capture->lignes();
    QCOMPARE(ouverture.size(), 4);
    // The port shown is the appliance's, whatever the sandbox binds.
    QVERIFY(ouverture.at(1).endsWith(
        QStringLiteral("Tentative de création du serveur UDP (socket) sur ::1:5042")));
    QVERIFY(ouverture.at(2).endsWith(
        QStringLiteral("État du serveur UDP : En attente de réception de données (%1)")
            .arg(descripteurLiea(port))));
    QVERIFY(ouverture.at(3).endsWith(QStringLiteral("fin ouvrirSiNonOuvert")));
    envoyer("A65:0:0:1", port);
    QTRY_VERIFY_WITH_TIMEOUT(recue(QStringLiteral("A65:0:0:1")), 10000);
}

void TestReception::socketImpossible()
{
    QUdpSocket occupant;
    QVERIFY(occupant.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
    bac.activer(occupant.localPort());
    serveur = std::make_unique<QServeurUdp>();
    QVERIFY(!serveur->estOuvert());
    serveur->setLog();
    capture->vider();

    // No descriptor left for this process while the server tries; no other
    // thread of this test opens one meanwhile.
    rlimit limite;
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &limite), 0);
    const int libre = ::dup(0);
    QVERIFY(libre >= 0);
    ::close(libre);
    rlimit reduite = limite;
    reduite.rlim_cur = static_cast<rlim_t>(libre);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &reduite), 0);
    serveur->ouvrirSiNonOuvert();
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &limite), 0);

    QVERIFY(!serveur->estOuvert());
    const QStringList lignes = capture->lignes();
    QCOMPARE(lignes.size(), 3);
    QVERIFY(lignes.at(2).endsWith(QStringLiteral("socket() error : ") + texteErrno(EMFILE)));
}

void TestReception::rouvreApresUneErreurDeReception()
{
    serveur = std::make_unique<QServeurUdp>();
    const quint16 port = serveur->portLie();
    const int descripteur = descripteurLiea(port);
    QVERIFY(descripteur >= 0);

    // The receive already waiting is not affected; the one after the next
    // datagram times out, which is a receive error like any other.
    timeval delai{0, 20000};
    QCOMPARE(::setsockopt(descripteur, SOL_SOCKET, SO_RCVTIMEO, &delai, sizeof delai), 0);
    serveur->setLog();
    envoyer("A66:0:0:1", port);
    QTRY_VERIFY_WITH_TIMEOUT(!serveur->estOuvert(), 10000);
    QVERIFY(recue(QStringLiteral("A66:0:0:1")));
    QCOMPARE(capture->contenant(QStringLiteral("recvfrom failed : ") + texteErrno(EAGAIN)).size(),
             1);
    QCOMPARE(capture->compter(QStringLiteral("close failed")), 0);
    // The option goes to a descriptor that is already closed.
    QCOMPARE(
        capture->contenant(QStringLiteral("sur recvfrom, setsockopt failed : ") + texteErrno(EBADF))
            .size(),
        1);
    QCOMPARE(serveur->portLie(), quint16(0));

    capture->vider();
    serveur->ouvrirSiNonOuvert();
    QVERIFY(serveur->estOuvert());
    QCOMPARE(capture->compter(QStringLiteral("Tentative de création du serveur UDP (socket) sur "
                                             "::1:5042")),
             1);
    envoyer("A67:0:0:1", serveur->portLie());
    QTRY_VERIFY_WITH_TIMEOUT(recue(QStringLiteral("A67:0:0:1")), 10000);
}

void TestReception::destructionArreteLaReception()
{
    serveur = std::make_unique<QServeurUdp>();
    serveur->setLog();
    envoyer("A68:0:0:1", serveur->portLie());
    QTRY_VERIFY_WITH_TIMEOUT(capture->compter(QStringLiteral("fin traiterDatagram")) == 1, 10000);
    capture->vider();
    QElapsedTimer chrono;
    chrono.start();
    serveur.reset();
    QVERIFY(chrono.elapsed() < 5000);
    // Waking the loop is no datagram and no receive error.
    QCOMPARE(capture->compter(QStringLiteral("traiterDatagram")), 0);
    QCOMPARE(capture->compter(QStringLiteral("recvfrom")), 0);
}

QTEST_GUILESS_MAIN(TestReception)
#include "tst_reception.moc"
