// Reception in this process: decoding, module update (database, tree,
// "Zone_HF") and the UDP socket.

#include "aide_reception.h"
#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"

#include <QUdpSocket>
#include <QtTest>

#include <atomic>
#include <thread>

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

class TestReception : public QObject
{
    Q_OBJECT

    const QDateTime instant{QDate(2026, 11, 15), QTime(12, 38, 33)};
    const QString t0 = QString::number(instant.toSecsSinceEpoch());
    const QString recue = "début traiterDatagram : Trame UDP reçue : ";
    BacASable bac;
    DoublureApplication doublure;
    QScopedPointer<QServeurUdp> serveur;
    QScopedPointer<CaptureLog> capture;

    QString base() const { return bac.chemin("/var/base/hf.db"); }
    QByteArray zone() const { return doublure.octetsZoneHF(); }
    void traiter(const QByteArray &trame) { serveur->traiterDatagram(trame); }
    // The server's log texts, without the date and tag each line starts with.
    QStringList journal() const
    {
        return capture->lignes()
            .filter(" (serveur_udp) ")
            .replaceInStrings(QRegularExpression("^.*? \\(serveur_udp\\) "), "");
    }
    static QString erreur(int n) { return QString("%1 : %2").arg(n).arg(std::strerror(n)); }

private slots:
    void initTestCase()
    {
        Horloge::figer(instant); // the tunnel restart of the constructor sleeps
        bac.activer(0);
        QString raison;
        QVERIFY2(doublure.creerZones(&raison), qPrintable(raison));
        serveur.reset(new QServeurUdp);
        serveur->setLog();
        capture.reset(new CaptureLog);
    }

    void init()
    {
        Horloge::figer(instant);
        serveur->enregistrerMesures = true;
        QFile::remove(base());
        serveur->creerBD();
        std::memset(doublure.donnees("Zone_HF"), 0, 21600);
        capture->vider();
    }

    void decoderUneTrame_data()
    {
        QTest::addColumn<QByteArray>("trame");
        // type|module|parent|rank|valeur|batterie|alim|"Zone_HF" rank; "": refused
        QTest::addColumn<QString>("lecture");
        QTest::addColumn<QString>("erreur");
        const auto ligne = [](const char *trame, const char *lecture, const char *erreur = "") {
            QTest::newRow(*trame ? trame : "empty") << QByteArray(trame) << lecture << erreur;
        };
        // Thresholds let a frame through one field short: that field reads 0.
        // clang-format off
        ligne("A12:1:2560",            "A|12|1|256|0|0|0|256");
        ligne("E7:3:20:201:455",       "E|7|3|2|20.1:45.5|0|0|2");
        ligne("G2:0:0:1234567890:12",  "G|2|0|0|1.23457e+08|1.2|0|0");
        ligne("A6:1:-15:100",          "A|6|1|-1.5|10|0|0|-1");
        ligne("A7:1:1e300:10",         "A|7|1|1e+299|1|0|0|2147483647");
        ligne("X1:2:3:4",              "", "Type trame inconnu : 'X'");
        ligne("",                      "");
        // clang-format on
    }

    void decoderUneTrame()
    {
        QFETCH(QByteArray, trame);
        QFETCH(QString, lecture);
        traiter("Zavant:p:0"); // the last reading, unless the frame is taken
        capture->vider();
        traiter(trame);
        const DonneesUDP d = serveur->copieDonneesUDP().last();
        QCOMPARE(d.dateheure, instant);
        const double rang = nombre<double>(zone(), slotDe(zone(), d.module.toUtf8()), RANK);
        QCOMPARE(QStringList({d.type, d.module, d.parent, QString::number(d.rank), d.valeur,
                              QString::number(d.batterie), QString::number(d.alim),
                              QString::number(rang, 'f', 0)})
                     .join('|'),
                 lecture.isEmpty() ? QString("Z|avant|p|0||0|0|0") : lecture);
        QTEST(journal().filter("inconnu").join('/'), "erreur");
    }

    // A flood of addresses each heard once: a reading no channel can take any
    // more (over a minute old) leaves the list, the others stay, newest last.
    void lecturesTropAnciennesOubliees()
    {
        serveur->enregistrerMesures = false;
        for (int m = 0; m < 300; ++m)
            traiter("A" + QByteArray::number(m) + ":br:0:1");
        Horloge::avancer(60);
        traiter("A300:br:0:1");
        DonneesUDP d;
        QVERIFY(serveur->copieDonneeUDP("0", &d));
        Horloge::avancer(1);
        traiter("A301:br:0:1");
        QVERIFY(!serveur->copieDonneeUDP("0", &d) && serveur->copieDonneeUDP("300", &d));
        QCOMPARE(serveur->copieDonneesUDP().size(), 2);
        QCOMPARE(serveur->copieDonneesUDP().last().module, QString("301"));
    }

    void deuxTrames_data()
    {
        QTest::addColumn<bool>("alim"); // the column that the update writes
        QTest::addColumn<QByteArray>("module");
        QTest::addColumn<QByteArray>("parent");
        QTest::newRow("base de demarrage") << false << QByteArray("12") << QByteArray("4");
        QTest::newRow("quotes") << true << QByteArray("z' or module<>'z%1")
                                << QByteArray("%2', rank=9, '");
        QTest::newRow("too long") << true << QByteArray(60, 'x') << QByteArray(55, 'p');
    }

    // Two frames 45 s apart, the second one kept out of the history. Texts are
    // stored as sent; "Zone_HF" cuts them to their 50 bytes, with no NUL.
    void deuxTrames()
    {
        QFETCH(bool, alim);
        QFETCH(QByteArray, module);
        QFETCH(QByteArray, parent);
        if (alim)
            lignes(base(), "alter table modules add column alim integer");
        lignes(base(), "insert into modules (module, rank) values ('autre', 7)");
        traiter("E" + module + ":" + parent + ":20:201:455:33:1");
        Horloge::avancer(45);
        serveur->enregistrerMesures = false;
        traiter("E" + module + ":" + parent + ":30:202:456:32:0");
        serveur->enregistrerMesures = true;
        // The start-up file lacks `alim`: the update fails, the rest goes on.
        QCOMPARE(journal().filter("Erreur"),
                 alim ? QStringList()
                      : QStringList{"Erreur update modules : 1  : no such column: "
                                    "alim Unable to execute statement"});
        const QString mp = QString::fromUtf8(module + "|" + parent);
        const QString premiere = "0|" + mp + "|2|3.3|20.1:45.5";
        QCOMPARE(lignes(base(), "select date_dernier_acces - " + t0 +
                                    ", module, parent, rank, batterie, valeur from modules"),
                 "|autre||7||\n" + (alim ? "45|" + mp + "|3|3.2|20.2:45.6" : premiere));
        QCOMPARE(
            lignes(base(), "select dateheure_mesure_hf - " + t0 +
                               ", module, parent, rank, batterie, valeur, alim from mesures_hf"),
            premiere + "|1");
        QCOMPARE(zone().mid(NUMERO, 100),
                 QByteArray(module.leftJustified(50, 0, true) + parent.leftJustified(50, 0, true)));
        QCOMPARE(enregistrement(zone(), 0).section('|', 3, 6), QString("E|20.2:45.6|3.2|3"));
    }

    void arbreDesModules()
    {
        // br is no module. Each module's first frame finds it absent from the table.
        for (int tour = 0; tour < 2; ++tour, Horloge::avancer(45)) {
            for (const char *t : {"A100:br:3000:1", "A200:100:4200:1", "A300:200:5000:1"})
                traiter(t);
        }
        QStringList infos; // rank step and children, first and second time
        const QList<QServeurUdp::_info_trame> liste = serveur->copieInfosTrame();
        for (const QServeurUdp::_info_trame &i : liste.mid(liste.size() - 6))
            infos << QString("%1 %2").arg(i.current_rank).arg(i.donnee_entiere);
        QCOMPARE(infos.join(','), QString("-14 -1,-14 -1,-14 -1,287 1,120 1,80 0"));
        QCOMPARE(enregistrement(zone(), 0), QString("1|100|br|A|0.1|0|300|287|1|-1"));
        QCOMPARE(enregistrement(zone(), 1), QString("1|200|100|A|0.1|0|420|120|2|-1"));
        QCOMPARE(enregistrement(zone(), 2), QString("1|300|200|A|0.1|0|500|80|3|-1"));
        // The depth comes from the table, the step from the parent the frame names.
        traiter("A300:100:5100:1");
        QCOMPARE(enregistrement(zone(), 2), QString("1|300|100|A|0.1|0|510|200|3|-1"));
        // Set aside by the main application: out of the tree, its slot taken back.
        doublure.donnees("Zone_HF")[0] = 0;
        traiter("A100:br:3000:1");
        QCOMPARE(enregistrement(zone(), 0), QString("1|100|br|A|0.1|0|300|-14|-1|-1"));
        // A second record of 100, under 300: a loop that only the bound ends.
        gestion_radio gr{};
        gr.present = 1;
        qstrncpy(gr.numero, "100", sizeof gr.numero);
        qstrncpy(gr.parent, "300", sizeof gr.parent);
        doublure.ecrireModule(3, gr);
        traiter("A300:100:5100:1");
        QCOMPARE(enregistrement(zone(), 2), QString("1|300|100|A|0.1|0|510|210|2|-1"));
        QCOMPARE(journal().filter("Calcul"), QStringList{"setModule : Calcul des rangs : i = 20"});
        // Level 0 is the appliance: nineteen levels of modules fit below it.
        std::memset(doublure.donnees("Zone_HF"), 0, 21600);
        for (int i = 1; i <= 19; ++i)
            traiter(QString("Ac%1:c%2:0:1").arg(i).arg(i - 1).toLatin1());
        capture->vider();
        traiter("Ac19:c18:0:1");
        QCOMPARE(enregistrement(zone(), 18) + ' ' + journal().filter("Calcul").join(""),
                 QString("1|c19|c18|A|0.1|0|0|0|19|-1 setModule : Calcul des rangs : i = 20"));
    }

    // The cycle's readers, statistics and purges run in the main thread while
    // the reception thread stores frames: every frame lands once (the thread
    // sanitizer build runs this with the readers racing the writer).
    void lecturesPendantLaReception()
    {
        constexpr int modules = 20, tours = 15;
        const auto miennes = [this] {
            int n = 0;
            for (const QServeurUdp::_info_trame &info : serveur->copieInfosTrame())
                n += info.module.startsWith("concurrent");
            return n;
        };
        const quint16 port = serveur->portLie();
        QVERIFY(port != 0);
        // One round at a time, so that the socket's buffer never overflows.
        std::atomic<int> vues{0};
        std::atomic<bool> fini{false};
        std::thread emetteur([&] {
            QUdpSocket socket;
            for (int tour = 0; tour < tours && !fini; ++tour) {
                for (int m = 0; m < modules; ++m)
                    socket.writeDatagram(
                        QString("Aconcurrent%1:0:10:%2").arg(m).arg(tour * 10).toUtf8(),
                        QHostAddress::LocalHostIPv6, port);
                while (vues < (tour + 1) * modules && !fini)
                    std::this_thread::yield();
            }
        });
        QElapsedTimer delai;
        delai.start();
        while (vues < modules * tours && delai.elapsed() < 60000) {
            serveur->copieDonneesUDP();
            serveur->calculerTauxInfosTrames();
            serveur->supprimerAnciennesInfosTrames();
            serveur->supprimerAnciennesMesures();
            serveur->supprimerAnciensTaux();
            vues = miennes();
        }
        fini = true;
        emetteur.join();
        QCOMPARE(miennes(), modules * tours);
        QCOMPARE(lignes(base(),
                        "select count(*), count(distinct module), max(cast(valeur as real)) "
                        "from mesures_hf where module like 'concurrent%'"),
                 QString("%1|%2|%3").arg(modules * tours).arg(modules).arg(tours - 1));
    }

    // The port taken, then no descriptor left, then a receive that times out:
    // each failure in its own words. One datagram is one frame, cut at a zero
    // byte or at 1024 bytes.
    void socketEnEchec()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
        const quint16 port = occupant.localPort();
        bac.activer(port);
        QServeurUdp autre;
        bac.activer(0);
        autre.setLog();
        rlimit limite, reduite{static_cast<rlim_t>(::dup(1)), 0}; // the lowest free descriptor
        ::close(static_cast<int>(reduite.rlim_cur));
        ::getrlimit(RLIMIT_NOFILE, &limite);
        reduite.rlim_max = limite.rlim_max;
        capture->vider();
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &reduite), 0);
        autre.ouvrirSiNonOuvert();
        ::setrlimit(RLIMIT_NOFILE, &limite);
        QCOMPARE(journal().mid(1),
                 QStringList({"Tentative de création du serveur UDP (socket) sur ::1:5042",
                              "socket() error : " + erreur(EMFILE)}));

        occupant.close();
        autre.ouvrirSiNonOuvert();
        const int fd = journal().filter("En attente").value(0).section('(', -1).chopped(1).toInt();
        const timeval delai{0, 300000}; // set while a receive waits: the next one fails
        QCOMPARE(::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &delai, sizeof delai), 0);
        const QByteArray plein = "A64:0:0:" + QByteArray(1016, '7');
        for (const QByteArray &d : {QByteArray("A62:0:0:215\0:1", 14), QByteArray(plein + "888")})
            QUdpSocket().writeDatagram(d, QHostAddress::LocalHostIPv6, port);
        QTRY_VERIFY(!autre.estOuvert());
        QCOMPARE(journal().filter(recue),
                 QStringList({recue + "A62:0:0:215", recue + QString::fromLatin1(plein)}));
        // The option goes to a descriptor that is already closed.
        QCOMPARE(journal().filter("recvfrom"),
                 QStringList({"recvfrom failed : " + erreur(EAGAIN),
                              "sur recvfrom, setsockopt failed : " + erreur(EBADF)}));
    }
};

QTEST_GUILESS_MAIN(TestReception)
#include "tst_reception.moc"
