#include "bacasable.h"
#include "doublureapplication.h"
#include "radio/demande_enregistrement.h"
#include "radio/fonctions_bases.h"

#include <QCryptographicHash>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTest>
#include <QUdpSocket>

// The inspector run as a program on a known module table, known zones and a
// small radio database, with "now" fixed so that every age is exact.
class TestInspecteur : public QObject
{
    Q_OBJECT
    static constexpr quint32 N = 1700000000; // 2023-11-14 22:13:20 UTC
    BacASable bac;
    BacASable vide; // no segment, no database, no socket
    DoublureApplication doublure;
    QUdpSocket service;

    struct Sortie
    {
        int code = -1;
        QString out, err;
    };

    Sortie lancer(QStringList arguments, const BacASable &ou, quint16 port)
    {
        QProcessEnvironment env = ou.environnement(port);
        env.insert("TZ", "UTC");
        if (arguments.contains("--sans-dot"))
            env.insert("PATH", ou.racine()); // a PATH where no dot lives
        arguments.removeAll("--sans-dot");
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(REPERTOIRE_OUTILS "/inspecteur/inspecteur",
                QStringList{"--maintenant", QString::number(N)} + arguments);
        if (!p.waitForFinished(20000))
            return {};
        return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
                QString::fromUtf8(p.readAllStandardOutput()),
                QString::fromUtf8(p.readAllStandardError())};
    }
    Sortie lancer(const QStringList &arguments)
    {
        return lancer(arguments, bac, service.localPort());
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

    static void module(const char *numero, const char *parent, const char *valeur, int rank,
                       int sauts, quint32 age, bool present = true)
    {
        gestion_radio gr = fonctions_bases::moduleNonTrouve();
        gr.present = present ? 1 : 0;
        Champs::ecrireTexte(gr.numero, 50, numero, 49);
        Champs::ecrireTexte(gr.parent, 50, parent, 49);
        Champs::ecrireTexte(gr.type, 2, "A", 1);
        Champs::ecrireTexte(gr.valeur, 50, valeur, 49);
        gr.pile = 3.1;
        gr.rank = rank;
        gr.current_rank = rank - 13;
        gr.nb_sauts = sauts;
        gr.dateheure_mesure = N - age;
        fonctions_bases::setModule(gr);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(service.bind(QHostAddress(QHostAddress::LocalHostIPv6), 0));
        bac.activer(service.localPort());
        QVERIFY(doublure.creerZones());
        module("00000011", "BR", "21.5", 256, 1, 10);
        module("00000012", "BR", "20.1:45", 300, 1, 360); // silent only past 360 s
        module("00000021", "00000011", "4.5", 512, 2, 20);
        module("00000031", "00000021", "-18.5", 768, 3, 361);
        module("00000041", "00000042", "1", 900, -1, 5); // a loop: never reached
        module("00000042", "00000041", "1", 900, -1, 5);
        module("00000099", "BR", "7", 260, 1, 50, false); // removal asked
        fonctions_bases::setModuleTaux("00000011", 100, 0);
        fonctions_bases::setModuleTaux("00000021", 87.5, 12.5);
        doublure.ecrireVoie(1, 4, "00000011", 0, 0.5);
        doublure.ecrireVoie(2, 5, "00000022:x:y", 1, -1.5);
        doublure.setMesure(1, 22);
        doublure.setMesure(2, 1);
        doublure.setAdresseBR("fd00::1");
        doublure.setOctetDemande(Demande_enregistrement::OFFSET_ACQUISITIONRADIO_FONCTIONNE, 1);
        QVERIFY(DoublureApplication::creerBaseAppareil(
            bac.chemin("/var/base/itessalin.db"),
            {"Aucun", "PT100", "4-20mA", "Contact", "RADIO", "RADIO Contact"}));
        {
            QSqlDatabase base = QSqlDatabase::addDatabase("QSQLITE", "hf_test");
            base.setDatabaseName(bac.chemin("/var/base/hf.db"));
            QVERIFY(base.open());
            QSqlQuery q(base);
            // Readings of 00000011 at 10 s, 55 s and 28 h; its module row keeps an older date.
            // Rates within 24 h: 90, 100, 80 and a "not computed yet"; one more 25 h old.
            const QStringList requetes =
                QString("create table modules (module, parent, date_dernier_acces integer);"
                        "create table mesures_hf (module, dateheure_mesure_hf integer);"
                        "create table mesures_taux (module, dateheure_mesure_taux integer, "
                        "taux_reception double, taux_utilisation double);"
                        "insert into modules values ('00000011', 'BR', %1 - 5000), "
                        "('00000077', '00000011', %1 - 90000);"
                        "insert into mesures_hf values ('00000011', %1 - 10), "
                        "('00000011', %1 - 55), ('00000011', %1 - 100000);"
                        "insert into mesures_taux values ('00000011', %1 - 200, 90, 10), "
                        "('00000011', %1 - 3600, 100, 0), ('00000011', %1 - 7200, 80, 20), "
                        "('00000011', %1 - 10800, -1, -1), ('00000011', %1 - 90000, 0, 100)")
                    .arg(N)
                    .split(';');
            for (const QString &r : requetes)
                QVERIFY2(q.exec(r), qPrintable(r));
        }
        QSqlDatabase::removeDatabase("hf_test");
    }

    void sections_data()
    {
        QTest::addColumn<QString>("commande");
        QTest::addColumn<QStringList>("cellules");
        const auto rangee = [](const char *nom, const char *commande, const char *cellules) {
            QTest::newRow(nom) << commande << QString(cellules).split('|');
        };
        rangee("module", "table", "0|00000011|BR|1|A|21.5|3.1|1|256|243|100.0|0.0|10|ok");
        rangee("rates unknown", "table", "1|00000012|BR|1|A|20.1:45|3.1|1|300|287|-|-|360|ok");
        rangee("silent", "table", "3|00000031|00000021|1|A|-18.5|3.1|3|768|755|-|-|361|silent");
        rangee("removed", "table", "6|00000099|BR|0|A|7|3.1|1|260|247|-|-|50|removed");
        rangee("heartbeat", "zones", "Demande_enreg|acquisitionRADIO_fonctionne|81|1|heartbeat");
        rangee("save request", "zones",
               "Demande_enreg|enregistrer_donnees_radio|80|0|save request");
        rangee("border router", "zones",
               "Config_iTessalin|adresse_br|1124|fd00::1|border-router address");
        rangee("radio channel", "zones", "1|4|RADIO|radio|00000011|-|0|0.5|22");
        rangee("contact channel", "zones", "2|5|RADIO Contact|radio contact|00000022|x:y|1|-1.5|1");
        rangee("rows", "base", "mesures_taux|5");
        rangee("last frame from readings", "base",
               "00000011|BR|2023-11-14 22:13:10|10|2|mesures_hf");
        rangee("last frame from modules", "base",
               "00000077|00000011|2023-11-13 21:13:20|90000|0|modules");
        rangee("rates 24 h", "base", "00000011|4|90.0|80.0|90.0|10.0");
    }

    void sections()
    {
        QFETCH(QString, commande);
        QFETCH(QStringList, cellules);
        const Sortie s = lancer({commande});
        QCOMPARE(s.code, 0);
        QCOMPARE(ligne(s.out, cellules.mid(0, 2)), cellules);
    }

    void arbreTexte()
    {
        const Sortie s = lancer({"arbre"});
        QCOMPARE(s.code, 0);
        QMap<QString, int> profondeurs;
        QStringList silencieux;
        const QRegularExpression branche("^([ |]*)[+`]-- (\\S+)  ");
        for (const QString &l : s.out.split('\n')) {
            const QRegularExpressionMatch m = branche.match(l);
            if (m.hasMatch())
                profondeurs.insert(m.captured(2), m.captured(1).size() / 4 + 1);
            if (m.hasMatch() && l.contains("SILENT"))
                silencieux.append(m.captured(2));
        }
        const QMap<QString, int> attendu{
            {"00000011", 1}, {"00000012", 1}, {"00000021", 2}, {"00000031", 3}};
        QCOMPARE(profondeurs, attendu);
        QCOMPARE(silencieux, QStringList{"00000031"});
        QVERIFY(s.out.contains("  00000041 (parent 00000042)"));
        QVERIFY(s.out.contains("6 live modules, 1 silent (last frame more than 360 s ago)"));
    }

    void arbreDot()
    {
        const Sortie s = lancer({"arbre", "--dot"});
        QCOMPARE(s.code, 0);
        QVERIFY(s.out.startsWith("digraph ") && s.out.endsWith("}\n"));
        QSet<QPair<QString, QString>> aretes;
        QRegularExpressionMatchIterator i = QRegularExpression("^\\s*\"([^\"]+)\" -> \"([^\"]+)\"",
                                                               QRegularExpression::MultilineOption)
                                                .globalMatch(s.out);
        while (i.hasNext()) {
            const QRegularExpressionMatch m = i.next();
            aretes.insert({m.captured(1), m.captured(2)});
        }
        const QSet<QPair<QString, QString>> attendu{
            {"iTessalin", "00000011"}, {"iTessalin", "00000012"}, {"00000011", "00000021"},
            {"00000021", "00000031"},  {"00000042", "00000041"},  {"00000041", "00000042"}};
        QCOMPARE(aretes, attendu);
        const QString noeud31 = s.out.split('\n').filter("\"00000031\" [").value(0);
        QVERIFY2(noeud31.contains("silent 361 s") && noeud31.contains("dashed"),
                 qPrintable(noeud31));
        QVERIFY(!s.out.split('\n').filter("\"00000011\" [").value(0).contains("dashed"));
    }

    void arbreSvg()
    {
        const QString fichier = bac.racine() + "/arbre.svg";
        const Sortie sans = lancer({"arbre", "--svg", fichier, "--sans-dot"});
        QCOMPARE(sans.code, 3);
        QVERIFY2(sans.err.contains("graphviz"), qPrintable(sans.err));
        QVERIFY(!QFile::exists(fichier));
        if (QStandardPaths::findExecutable("dot").isEmpty())
            QSKIP("Graphviz is not installed: only the message is checked");
        QCOMPARE(lancer({"arbre", "--svg", fichier}).code, 0);
        QFile svg(fichier);
        QVERIFY(svg.open(QIODevice::ReadOnly));
        const QByteArray contenu = svg.readAll();
        QVERIFY(contenu.contains("<svg") && contenu.contains("00000031"));
    }

    void lectureSeule()
    {
        const auto empreinte = [this] {
            QCryptographicHash h(QCryptographicHash::Sha256);
            for (const QString &cle : DoublureApplication::cles())
                h.addData(reinterpret_cast<const char *>(doublure.donnees(cle)),
                          DoublureApplication::tailleZone(cle));
            QFile base(bac.chemin("/var/base/hf.db"));
            if (base.open(QIODevice::ReadOnly))
                h.addData(base.readAll());
            return h.result();
        };
        const QByteArray avant = empreinte();
        const QDateTime mtime = QFileInfo(bac.chemin("/var/base/hf.db")).lastModified();
        const QStringList fichiers = QDir(bac.chemin("/var/base")).entryList(QDir::Files);
        QCOMPARE(lancer({"tout"}).code, 0);
        QCOMPARE(lancer({"arbre", "--dot"}).code, 0);
        QCOMPARE(empreinte(), avant);
        QCOMPARE(QFileInfo(bac.chemin("/var/base/hf.db")).lastModified(), mtime);
        QCOMPARE(QDir(bac.chemin("/var/base")).entryList(QDir::Files), fichiers);
    }

    void compteurUdp()
    {
        service.setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 1);
        QUdpSocket emetteur;
        const QByteArray datagramme(1024, 'A');
        for (int i = 0; i < 64; ++i)
            emetteur.writeDatagram(datagramme, QHostAddress::LocalHostIPv6, service.localPort());
        const Sortie s = lancer({"udp"});
        QCOMPARE(s.code, 0);
        const QStringList c = ligne(s.out, {QString("[::1]:%1").arg(service.localPort())});
        QCOMPARE(c.size(), 4);
        QVERIFY2(c.at(1).toInt() > 0 && c.at(1).toInt() < 64, qPrintable(s.out)); // drops
        QVERIFY(c.at(2).toInt() > 0);                                             // queued bytes
    }

    void sourcesAbsentes_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("module table")
            << QStringList{"table"} << 2 << "segment Zone_HF does not exist";
        QTest::newRow("tree as DOT") << QStringList{"arbre", "--dot"} << 2 << "segment Zone_HF";
        QTest::newRow("zones") << QStringList{"zones"} << 2
                               << "segment Demande_enreg does not exist";
        QTest::newRow("database") << QStringList{"base"} << 2 << "hf.db does not exist";
        QTest::newRow("socket") << QStringList{"udp"} << 2 << "no UDP socket bound to port";
        QTest::newRow("unknown command") << QStringList{"bidule"} << 1 << "usage";
    }

    void sourcesAbsentes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, code);
        QFETCH(QString, message);
        const Sortie s = lancer(arguments, vide, BacASable::portLibre());
        QCOMPARE(s.code, code);
        QVERIFY2(s.err.contains(message), qPrintable(s.err));
        if (arguments.contains("--dot"))
            QVERIFY(s.out.isEmpty());
        QVERIFY(!QFile::exists(vide.chemin("/var/base/hf.db")));
    }
};

QTEST_GUILESS_MAIN(TestInspecteur)
#include "tst_inspecteur.moc"
