// Reception in this process: decoding, module update (database, tree,
// "Zone_HF"), the save thread's pass, and the UDP socket.

#include "aide_reception.h"
#include "bacasable.h"
#include "capturelog.h"
#include "doublureapplication.h"

#include "commun/horloge.h"
#include "udp/qserveurudp.h"
#include "udp/threadsavemodule.h"

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
        QTest::addColumn<QString>("suite"); // the log after the frame's, '/' between lines
        const auto ligne = [](const char *trame, const char *lecture, QString suite = {}) {
            suite += QString("fin traiterDatagram : a_traite = %1").arg(*lecture != 0);
            QTest::newRow(*trame ? trame : "empty") << QByteArray(trame) << lecture << suite;
        };
        // Thresholds let a frame through one field short: that field reads 0.
        // clang-format off
        ligne("A12:1:2560",            "A|12|1|256|0|0|0|256");
        ligne("A12:1:25:215:36",       "A|12|1|2.5|21.5|3.6|0|2");
        ligne("B7:3:15:201:-52:36",    "B|7|3|1.5|20.1:-5.2|3.6|0|1");
        ligne("C8:3:20:-7:30",         "C|8|3|2|-0.7|3|0|2");
        ligne("D9:2:30:1000:5:29",     "D|9|2|3|100:0.5|2.9|0|3");
        ligne("E7:3:20:201:455:33:1",  "E|7|3|2|20.1:45.5|3.3|1|2");
        ligne("E7:3:20:201:455",       "E|7|3|2|20.1:45.5|0|0|2");
        ligne("F1:0:0:1234567",        "F|1|0|0|123457|0|0|0");
        ligne("G2:0:0:1234567890:12",  "G|2|0|0|1.23457e+08|1.2|0|0");
        ligne("R5:1:10:36",            "R|5|1|1||3.6|0|1");
        ligne("Z5:1:10",               "Z|5|1|1||0|0|1");
        ligne("A6:1:-15:100",          "A|6|1|-1.5|10|0|0|-1");
        ligne("A7:1:1e300:10",         "A|7|1|1e+299|1|0|0|2147483647");
        ligne("X1:2:3:4",              "", "Type trame inconnu : 'X'/");
        ligne("a1:2:3:4",              "", "Type trame inconnu : 'a'/");
        ligne("A1:2",                  "");
        ligne("B1:2:3",                "");
        ligne("E1:2:3:4",              "");
        QTest::newRow("empty") << QByteArray() << QString() << QString();
        // clang-format on
    }

    void decoderUneTrame()
    {
        QFETCH(QByteArray, trame);
        QFETCH(QString, lecture);
        QFETCH(QString, suite);
        // The module's earlier reading: the list keeps one reading per module.
        const QString module = lecture.isEmpty() ? "avant" : lecture.section('|', 1, 1);
        traiter("Z" + module.toUtf8() + ":p:0");
        const int avant = serveur->copieDonneesUDP().size();
        capture->vider();
        traiter(trame);

        const QList<DonneesUDP> donnees = serveur->copieDonneesUDP();
        const DonneesUDP &d = donnees.last();
        QCOMPARE(donnees.size(), avant);
        QCOMPARE(d.dateheure, instant);
        const double rang = nombre<double>(zone(), slotDe(zone(), module.toUtf8()), RANK);
        QCOMPARE(QStringList({d.type, d.module, d.parent, QString::number(d.rank), d.valeur,
                              QString::number(d.batterie), QString::number(d.alim),
                              QString::number(rang, 'f', 0)})
                     .join('|'),
                 lecture.isEmpty() ? QString("Z|avant|p|0||0|0|0") : lecture);
        const QStringList vu = journal().filter(QRegularExpression("traiterDatagram :|inconnu"));
        QCOMPARE(vu.value(0), QString(recue + QString::fromUtf8(trame)));
        QCOMPARE(vu.mid(1).join('/'), suite);
    }

    void miseAJourSurLaBaseDeDemarrage()
    {
        traiter("E12:3:20:201:455:33:1");
        Horloge::avancer(45);
        serveur->enregistrerMesures = false; // all but the history is done
        traiter("E12:4:30:202:456:32:0");
        serveur->enregistrerMesures = true;
        // The start-up file lacks `alim`: the update fails, the rest goes on.
        QCOMPARE(journal().filter("Erreur"),
                 QStringList{"Erreur update modules : 1  : no such column: alim Unable to "
                             "execute statement"});
        QCOMPARE(enregistrement(zone(), 0), QString("1|12|4|E|20.2:45.6|3.2|3|-11|1|-1"));
        QCOMPARE(
            lignes(base(), "select dateheure_mesure_hf - " + t0 +
                               ", module, parent, rank, batterie, valeur, alim from mesures_hf"),
            QString("0|12|3|2|3.3|20.1:45.5|1"));
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
        QCOMPARE(nombre<quint32>(zone(), 2, DATEHEURE), t0.toUInt() + 45);
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

    void texteStockeTelQuel_data()
    {
        QTest::addColumn<QByteArray>("module");
        QTest::addColumn<QByteArray>("parent");
        QTest::newRow("quotes") << QByteArray("z' or module<>'z%1") << QByteArray("%2', rank=9, '");
        QTest::newRow("statement") << QByteArray("p1") << QByteArray("1'); delete from modules;--");
        // Cut to its 50 bytes in "Zone_HF", with no NUL.
        QTest::newRow("too long") << QByteArray(60, 'x') << QByteArray(55, 'p');
    }

    void texteStockeTelQuel()
    {
        QFETCH(QByteArray, module);
        QFETCH(QByteArray, parent);
        // With the column the update writes, so that both statements succeed.
        lignes(base(), "alter table modules add column alim integer");
        lignes(base(), "insert into modules (module, rank) values ('autre', 7)");
        traiter("A" + module + ":" + parent + ":30:5");
        Horloge::avancer(45);
        traiter("E" + module + ":" + parent + ":40:201:455:33:1");
        const QString mp = QString::fromUtf8(module + "|" + parent);
        QCOMPARE(lignes(base(), "select date_dernier_acces - " + t0 +
                                    ", module, parent, type, rank, batterie, valeur, alim "
                                    "from modules order by rowid"),
                 "|autre|||7|||\n45|" + mp + "|E|4|3.3|20.1:45.5|1");
        QCOMPARE(lignes(base(), "select module, parent from mesures_hf"), mp + '\n' + mp);
        QCOMPARE(zone().mid(NUMERO, 100),
                 QByteArray(module.leftJustified(50, 0, true) + parent.leftJustified(50, 0, true)));
    }

    void sauvegardeEnUnPassage()
    {
        ThreadSaveModule sauvegarde(serveur.get());
        // 60 bytes of UTF-8: the cut at 49 falls inside a character.
        const QString valeur(30, QChar(0xe9));
        DonneesUDP a(instant, "A", "72", "0", 1.0, "1", 0, 0);
        DonneesUDP b(instant, "B", "73", "0", -2.5, valeur, 3.6, 1);
        for (DonneesUDP *d : {&a, &b, &a}) // the same record twice: applied twice
            sauvegarde.mettreEnFile(d);
        sauvegarde.ajouterModule(&b); // at once, the queue left alone
        QCOMPARE(sauvegarde.traiterFile(), 3);
        QCOMPARE(sauvegarde.tailleFile(), 0);
        const QString fin = "setModule fin traitement classique ";
        QCOMPARE(journal().filter(fin).join(',').remove(fin), QString("73,72,73,72"));
        // Removal goes by identity from the front: each record is found at 0.
        QCOMPARE(capture->compter("Suppression j= 0"), 3);
        // The rank truncated toward zero; the value cut in "Zone_HF" only.
        QCOMPARE(nombre<double>(zone(), 0, RANK), -2.0);
        QCOMPARE(zone().mid(VALEUR, 50), QByteArray(valeur.toUtf8().left(49) + '\0'));
        QCOMPARE(lignes(base(), "select valeur from mesures_hf where module = '73'"),
                 valeur + '\n' + valeur);
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

    void socketEchecsReceptionEtReouverture()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
        const quint16 port = occupant.localPort();
        bac.activer(port);
        QServeurUdp autre;
        bac.activer(0);
        const QString e = erreur(EADDRINUSE);
        QVERIFY(journal().contains("bind() error : " + e)); // whatever the log setting
        autre.setLog();
        capture->vider();
        autre.ouvrirSiNonOuvert();
        const QString tentative = "Tentative de création du serveur UDP (socket) sur ::1:5042";
        QCOMPARE(journal(),
                 QStringList({"début ouvrirSiNonOuvert", tentative, "bind() error : " + e,
                              "État du serveur UDP : Non ouvert : " + e}));

        // No descriptor left for this process.
        rlimit limite, reduite{static_cast<rlim_t>(::dup(1)), 0}; // the lowest free one
        ::close(static_cast<int>(reduite.rlim_cur));
        ::getrlimit(RLIMIT_NOFILE, &limite);
        reduite.rlim_max = limite.rlim_max;
        capture->vider();
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &reduite), 0);
        autre.ouvrirSiNonOuvert();
        ::setrlimit(RLIMIT_NOFILE, &limite);
        QCOMPARE(journal().mid(1), QStringList({tentative, "socket() error : " + erreur(EMFILE)}));

        occupant.close();
        capture->vider();
        autre.ouvrirSiNonOuvert();
        const int fd = journal().value(2).section('(', -1).chopped(1).toInt();
        const QString attente = "État du serveur UDP : En attente de réception de données (%1)";
        QCOMPARE(journal(), QStringList({"début ouvrirSiNonOuvert", tentative, attente.arg(fd),
                                         "fin ouvrirSiNonOuvert"}));

        // One datagram, one frame, cut at a zero byte or at 1024 bytes; then the
        // time-out, set while a receive waits, ends the next one in an error.
        const timeval delai{0, 300000};
        QCOMPARE(::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &delai, sizeof delai), 0);
        const QByteArray plein = "A64:0:0:" + QByteArray(1016, '7');
        for (const QByteArray &d :
             {QByteArray("A62:0:0:215\0:1", 14), QByteArray("\0A", 2), QByteArray(plein + "888")})
            QUdpSocket().writeDatagram(d, QHostAddress::LocalHostIPv6, port);
        QTRY_VERIFY(!autre.estOuvert());
        QCOMPARE(journal().filter(recue),
                 QStringList({recue + "A62:0:0:215", recue, recue + QString::fromLatin1(plein)}));
        // The option goes to a descriptor that is already closed.
        QCOMPARE(journal().filter("recvfrom"),
                 QStringList({"recvfrom failed : " + erreur(EAGAIN),
                              "sur recvfrom, setsockopt failed : " + erreur(EBADF)}));
        autre.ouvrirSiNonOuvert();
        QUdpSocket().writeDatagram("A67:0:0:1", QHostAddress::LocalHostIPv6, port);
        QTRY_VERIFY(journal().contains(recue + "A67:0:0:1"));
    }
};

QTEST_GUILESS_MAIN(TestReception)
#include "tst_reception.moc"
