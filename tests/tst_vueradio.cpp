#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"
#include "radio/demande_enregistrement.h"
#include "radio/fonctions_bases.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>
#include <QUdpSocket>

namespace {

const quint32 N = 1700000000; // 2023-11-14 22:13:20 UTC
// present numero parent type valeur, pile rank current_rank hops, rates, last frame. 00000012
// is silent only past 360 s; 00000041 and 00000042 form a loop, never reached.
const gestion_radio MODULES[] = {
    {1, "00000011", "BR", "A", "21.5", {}, 3.1, 256, 243, 1, {}, 100, 0, N - 10, -1},
    {1, "00000012", "BR", "A", "20.1:45", {}, 3.1, 300, 287, 1, {}, -1, -1, N - 360, -1},
    {1, "00000021", "00000011", "A", "4.5", {}, 3.1, 512, 499, 2, {}, 87.5, 12.5, N - 20, -1},
    {1, "00000031", "00000021", "A", "-18.5", {}, 3.1, 768, 755, 3, {}, -1, -1, N - 361, -1},
    {1, "00000041", "00000042", "A", "1", {}, 3.1, 900, 887, -1, {}, -1, -1, N - 5, -1},
    {1, "00000042", "00000041", "A", "1", {}, 3.1, 900, 887, -1, {}, -1, -1, N - 5, -1},
    {0, "00000099", "BR", "A", "7", {}, 3.1, 260, 247, 1, {}, -1, -1, N - 50, -1}}; // removed

} // namespace

// The inspector run as a program on a known module table, known zones and a
// small radio database, with "now" fixed so that every age is exact.
class TestVueRadio : public QObject
{
    Q_OBJECT
    BacASable bac;
    BacASable vide; // no segment, no database, no socket
    DoublureApplication doublure;
    QUdpSocket service;

    QString out, err; // of the last run

    int lancer(const QStringList &arguments, bool sansSources = false)
    {
        return executer(sansSources ? vide.environnement(BacASable::portLibre())
                                    : bac.environnement(service.localPort()),
                        N, arguments);
    }
    int executer(const QProcessEnvironment &env, quint32 maintenant, const QStringList &arguments)
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(REPERTOIRE_OUTILS "/vueradio/vueradio",
                QStringList{"--maintenant", QString::number(maintenant)} + arguments);
        const bool fini = p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit;
        out = p.readAllStandardOutput();
        err = p.readAllStandardError();
        return fini ? p.exitCode() : -1;
    }

    // Cells (two blanks or more apart) of the first line that begins with `debut`.
    static QStringList ligne(const QString &texte, const QStringList &debut)
    {
        for (const QString &l : texte.split('\n')) {
            const QStringList c = l.trimmed().split(QRegularExpression("\\s{2,}"));
            if (c.mid(0, debut.size()) == debut)
                return c;
        }
        return {};
    }

private slots:
    void initTestCase()
    {
        QVERIFY(service.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
        bac.activer(service.localPort());
        QVERIFY(doublure.creerZones());
        qputenv("TZ", "UTC");
        for (const gestion_radio &gr : MODULES)
            fonctions_bases::setModule(gr);
        doublure.ecrireVoie(1, 4, "00000011", 0, 0.5);
        doublure.ecrireVoie(2, 5, "00000022:x:y", 1, -1.5);
        doublure.setMesure(1, 22);
        doublure.setMesure(2, 1);
        doublure.setAdresseBR("fd00::1");
        doublure.setOctetDemande(Demande_enregistrement::OFFSET_ACQUISITIONRADIO_FONCTIONNE, 1);
        QVERIFY(DoublureApplication::creerBaseAppareil(
            bac.chemin("/var/base/itessalin.db"),
            {"Aucun", "PT100", "4-20mA", "Contact", "RADIO", "RADIO Contact"}));
        // Readings of 00000011 at 10 s, 55 s and 28 h; its module row keeps an older date.
        // Rates within 24 h: 90, 100, 80 and a "not computed yet"; one more 25 h old.
        for (const QString &r :
             QString("create table modules (module, parent, date_dernier_acces);"
                     "create table mesures_hf (module, dateheure_mesure_hf);"
                     "create table mesures_taux (module, dateheure_mesure_taux, taux_reception, "
                     "taux_utilisation); insert into modules values ('00000011', 'BR', %1 - 5000),"
                     "('00000077', '00000011', %1 - 90000); insert into mesures_hf values "
                     "('00000011', %1 - 10), ('00000011', %1 - 55), ('00000011', %1 - 100000);"
                     "insert into mesures_taux values ('00000011', %1 - 200, 90, 10), ('00000011', "
                     "%1 - 3600, 100, 0), ('00000011', %1 - 7200, 80, 20), ('00000011', %1 - "
                     "10800, -1, -1), ('00000011', %1 - 90000, 0, 100)")
                 .arg(N)
                 .split(';'))
            lignes(bac.chemin("/var/base/hf.db"), r);
    }

    // Exit code and a line of output, cells apart by ';' (the first two find it); with
    // a failing code, run where nothing exists and the message on standard error.
    void sortie_data()
    {
        QTest::addColumn<QString>("commande");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("cellules");
        const auto rangee = [](const char *nom, const char *commande, int code, const char *c) {
            QTest::newRow(nom) << commande << code << QString(c).split(';');
        };
        rangee("module", "table", 0, "0;00000011;BR;1;A;21.5;3.1;1;256;243;100.0;0.0;10;ok");
        rangee("rates unknown", "table", 0, "1;00000012;BR;1;A;20.1:45;3.1;1;300;287;-;-;360;ok");
        rangee("silent", "table", 0, "3;00000031;00000021;1;A;-18.5;3.1;3;768;755;-;-;361;silent");
        rangee("removed", "table", 0, "6;00000099;BR;0;A;7;3.1;1;260;247;-;-;50;removed");
        rangee("tree summary", "arbre", 0,
               "Radio tree: 5 live modules, 1 silent (last frame more than 360 s ago)");
        rangee("tree, silent", "arbre", 0,
               "|;`-- 00000031;hops 3, rank step 755, reception -, SILENT (last frame 361 s ago)");
        rangee("heartbeat", "zones", 0, "Demande_enreg;acquisitionRADIO_fonctionne;81;1;heartbeat");
        rangee("save request", "zones", 0,
               "Demande_enreg;enregistrer_donnees_radio;80;0;save request");
        rangee("BR", "zones", 0, "Config_iTessalin;adresse_br;1124;fd00::1;border-router address");
        rangee("radio channel", "zones", 0, "1;4;RADIO;radio;00000011;-;0;0.5;22");
        rangee("contact", "zones", 0, "2;5;RADIO Contact;radio contact;00000022;x:y;1;-1.5;1");
        rangee("rows", "base", 0, "mesures_taux;5");
        rangee("from readings", "base", 0, "00000011;BR;2023-11-14 22:13:10;10;2;mesures_hf");
        rangee("from modules", "base", 0, "00000077;00000011;2023-11-13 21:13:20;90000;0;modules");
        rangee("rates 24 h", "base", 0, "00000011;4;90.0;80.0;90.0;10.0");
        rangee("no table", "table", 2, "segment Zone_HF does not exist");
        rangee("no tree", "arbre", 2, "segment Zone_HF does not exist");
        rangee("no DOT", "arbre --dot", 2, "segment Zone_HF does not exist");
        rangee("no zones", "zones", 2, "segment Demande_enreg does not exist");
        rangee("no database", "base", 2, "hf.db does not exist");
        rangee("no socket", "udp", 2, "no UDP socket bound to port");
        rangee("unknown command", "bidule", 1, "vueradio: unknown command 'bidule'\nusage: ");
    }
    void sortie()
    {
        QFETCH(QString, commande);
        QFETCH(int, code);
        QFETCH(QStringList, cellules);
        QCOMPARE(lancer(commande.split(' '), code != 0), code);
        if (code == 0)
            QCOMPARE(ligne(out, cellules.mid(0, 2)), cellules);
        QVERIFY2(code == 0 || err.contains(cellules.first()), qPrintable(err));
        // What is missing is said under its section's heading.
        QVERIFY2(!out.contains("\n\n  (unavailable)"), qPrintable(out));
        QVERIFY(code == 0 || !commande.contains("--dot") || out.isEmpty()); // no half graph
        QVERIFY(!QFile::exists(vide.chemin("/var/base/hf.db")));
    }

    void arbreDot()
    {
        QVERIFY(lancer({"arbre", "--dot"}) == 0 && out.startsWith("digraph ") &&
                out.endsWith("}\n"));
        QStringList aretes, pointilles;
        for (const QString &l : out.split('\n')) {
            const QString t = QString(l).remove(QRegularExpression("[\";]")).trimmed();
            if (t.contains(" -> "))
                aretes << t.section(' ', 0, 2);
            if (t.startsWith("0000") && t.contains("dashed")) // a silent module's node
                pointilles << t.section(' ', 0, 0) + ' ' + t.section("\\n", -1).section(',', 0, 0);
        }
        aretes.sort();
        QCOMPARE(aretes.join(", "), "00000011 -> 00000021, 00000021 -> 00000031, 00000041 -> "
                                    "00000042, 00000042 -> 00000041, iTessalin -> 00000011, "
                                    "iTessalin -> 00000012");
        QCOMPARE(pointilles, QStringList("00000031 silent 361 s"));
    }

    // Segments, database contents and date, files beside it: all as they were.
    void lectureSeule()
    {
        const auto etat = [this]() -> QByteArray {
            QByteArray tout;
            for (const QString &cle : DoublureApplication::cles())
                tout += QByteArray(reinterpret_cast<const char *>(doublure.donnees(cle)),
                                   DoublureApplication::tailleZone(cle));
            QFile base(bac.chemin("/var/base/hf.db"));
            base.open(QIODevice::ReadOnly);
            return tout + base.readAll() +
                   QByteArray::number(QFileInfo(base).lastModified().toMSecsSinceEpoch()) +
                   QDir(bac.chemin("/var/base")).entryList(QDir::Files).join('/').toUtf8();
        };
        const QByteArray avant = etat();
        QVERIFY(lancer({"tout"}) == 0 && lancer({"arbre", "--dot"}) == 0);
        QVERIFY(etat() == avant);
    }

    void compteurUdp()
    {
        service.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1);
        for (int i = 0; i < 64; ++i) // to itself
            service.writeDatagram(QByteArray(1024, 'A'), service.localAddress(),
                                  service.localPort());
        const int code = lancer({"udp"});
        const QStringList c = ligne(out, {QString("[::1]:%1").arg(service.localPort())});
        QVERIFY2(code == 0 && c.size() == 4 && c.at(1).toInt() > 0 && c.at(1).toInt() < 64 &&
                     c.at(2).toInt() > 0,
                 qPrintable(out));
    }

    // Against a daemon in a sandbox of its own: ok while it runs with a frame
    // just stored, a warning once that frame is older than the repair limit,
    // critical once the daemon is stopped.
    void sante()
    {
        BacASable s;
        s.activer();
        DoublureApplication zones;
        QVERIFY(zones.creerZones());
        const quint16 port = BacASable::portLibre();
        const QProcessEnvironment env = s.environnement(port);
        QProcess daemon;
        daemon.setProcessEnvironment(env);
        daemon.setStandardErrorFile(s.chemin("/var/log/acquisitionradio.log"));
        daemon.start(CHEMIN_DAEMON, QStringList());
        const QString base = s.chemin("/var/base/hf.db");
        // Sent until one is stored: the socket is bound after the tunnel restart.
        QVERIFY(QTest::qWaitFor(
            [&] {
                QUdpSocket().writeDatagram("A00000011:br:20:215",
                                           QHostAddress(QHostAddress::LocalHostIPv6), port);
                return QFile::exists(base) &&
                       lignes(base, "select count(*) from mesures_hf").toInt() > 0;
            },
            20000));
        const quint32 t = QDateTime::currentSecsSinceEpoch();

        QCOMPARE(executer(env, t, {"sante"}), 0);
        QVERIFY2(QRegularExpression(
                     QString("\n  ok +daemon +running, pid %1, since ").arg(daemon.processId()))
                         .match(out)
                         .hasMatch() &&
                     QRegularExpression("\n  info +tunnel restart +\\d{4}-.* at the daemon's "
                                        "start\n")
                         .match(out)
                         .hasMatch() &&
                     out.endsWith("\nHealth: ok (exit status 0)\n"),
                 qPrintable(out));
        QCOMPARE(executer(env, t + 400, {"sante"}), 1);
        QVERIFY2(QRegularExpression("\n  WARNING +frames +newest frame stored 6 min ago .*module "
                                    "00000011\\), more than 360 s\n")
                     .match(out)
                     .hasMatch(),
                 qPrintable(out));

        daemon.terminate();
        QVERIFY(daemon.waitForFinished());
        // The supervision's lines, as the init script's watcher keeps them.
        QFile journal(s.chemin("/var/log/acquisitionradio.log"));
        QVERIFY(journal.open(QIODevice::Append));
        journal.write("2026-11-23 10:00:00 23/11/2026 10:00:00 (serveur_udp) RESTART TUNSLIP6 : "
                      "Aucune trame\n2026-11-23 10:00:01 23/11/2026 10:00:01 (serveur_udp) "
                      "restartTunslip6()\n23/11/2026 10:07:00 (serveur_udp) REPAIR BR : Modules "
                      "concernés : 00000033 (>360s)\n");
        journal.close();
        QCOMPARE(executer(env, t, {"sante", "--json"}), 2);
        const QJsonObject o = QJsonDocument::fromJson(out.toUtf8()).object();
        const QJsonObject checks = o.value("checks").toObject();
        QStringList etats;
        for (const char *nom : {"daemon", "udp", "frames", "segments", "scripts", "database"})
            etats << QString(nom) + ' ' + checks.value(nom).toObject().value("status").toString();
        QCOMPARE(o.value("status").toString(), "critical");
        QCOMPARE(etats.join(", "), "daemon critical, udp critical, frames ok, segments ok, "
                                   "scripts ok, database ok");
        const auto action = [&](const char *nom) -> QString {
            const QJsonObject a = checks.value(nom).toObject();
            return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(a.value("time").toDouble(-1)))
                       .toString("hh:mm:ss ") +
                   a.value("line").toString();
        };
        QCOMPARE(action("tunnel_restart"), "10:00:01 Aucune trame");
        QCOMPARE(action("repair"), "10:07:00 Modules concernés : 00000033 (>360s)");
        QVERIFY(!checks.value("reset").toObject().contains("time"));
    }
};

QTEST_GUILESS_MAIN(TestVueRadio)
#include "tst_vueradio.moc"
