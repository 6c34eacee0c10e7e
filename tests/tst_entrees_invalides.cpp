// Bad input: malformed datagrams through the real socket, malformed zone records.

#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "radio/fonctions_bases.h"

#include <QUdpSocket>
#include <QtTest>

#include <climits>

namespace {

const QByteArray LETTRES = "ABCDEFGRZ", SEUILS = "343453333"; // fewest fields each type takes
const int PAR_FAMILLE = 10000; // 10 families: 100,000 refused datagrams in all
const int RADIO = 2;           // the channel type named "RADIO"

// How a family spoils a frame with every needed field and more: what it puts
// first, too few fields, a zero byte before the needed fields end, other
// separators, the needed fields past the 1024-byte cut (UTF-8 never adds a ':').
enum Forme { VIDE, AVANT, COURT, ZERO, SEPARATEUR, LONG };

QByteArray fabriquer(QRandomGenerator &g, int forme, const QByteArrayList &morceaux)
{
    const int i = g.bounded(0, 9), seuil = SEUILS.at(i) - '0';
    const auto parmi = [&] { return morceaux.at(g.bounded(0, morceaux.size())); };
    const QByteArray lettre(1, LETTRES.at(i));
    QByteArrayList c;
    for (int n = forme == COURT ? g.bounded(1, seuil) : g.bounded(7, 11); n > 0; --n)
        c << (forme == COURT ? parmi() : QByteArray::number(g.bounded(-500, 5001)));
    QByteArray trame = lettre + c.join(':');
    int fin = 0; // the separator that completes the needed fields
    for (int n = 1; n < seuil; ++n)
        fin = trame.indexOf(':', fin + 1);
    const int taille = g.bounded(0, 100) ? g.bounded(1024, 3001) : 64000;
    return forme == VIDE         ? QByteArray(g.bounded(0, 2) * g.bounded(1, 1101), '\0')
           : forme == AVANT      ? QByteArray(parmi() + trame)
           : forme == SEPARATEUR ? trame.replace(':', parmi())
           : forme == ZERO       ? trame.insert(g.bounded(1, fin + 1), '\0')
           : forme == LONG ? QByteArray(lettre + "12:" + QByteArray(taille, 'x') + ':' + trame)
                           : trame;
}

// Frames that look wrong yet pass the rules: each is stored like any other.
const QList<QPair<QString, QByteArray>> ETRANGES{
    {"", "A::"},
    {"e1", "Ee1:BR:1e309:-1e309:99999999999999999999999:1e300:99999999999:1:2:3"},
    {"e2", QByteArray("Re2:BR:10:36\0X:Y:Z", 18)},
    {"'); DELETE FROM mesures_hf;--", "A'); DELETE FROM mesures_hf;--:p'%1:0:1"},
    {"é€", "Gé€: BR : x : " + QByteArray(1100, '9')}};

// The receive queue in bytes and the drop count of the UDP socket bound to
// [::1]:port, as the kernel reports them; -1 when there is no such socket.
QPair<qint64, qint64> etatSocket(quint16 port)
{
    QFile f("/proc/net/udp6");
    f.open(QIODevice::ReadOnly);
    const QByteArrayList table = f.readAll().split('\n');
    for (const QByteArray &ligne : table) {
        const QByteArrayList c = ligne.simplified().split(' ');
        if (c.value(1) == QString::asprintf("%032X:%04X", 0x01000000, port).toLatin1())
            return {c.value(4).mid(9).toLongLong(nullptr, 16), c.value(12).toLongLong()};
    }
    return {-1, -1};
}

} // namespace

class TestEntreesInvalides : public QObject
{
    Q_OBJECT
    const QStringList types{"Aucun", "PT100", "RADIO", "RADIO Contact"};
    BacASable bac;
    DoublureApplication appli;
    QStringList journal;
    QUdpSocket emetteur;
    quint16 port = 0;
    qint64 enVol = 0;  // what the receive queue may hold since it was last empty
    qint64 budget = 0; // half the receive buffer

    QString base() const { return bac.chemin("/var/base/hf.db"); }
    static QStringList trie(QStringList l) { return l.sort(), l; }
    QStringList colonne(const QString &sql) const { return trie(lignes(base(), sql).split('\n')); }

    // Sends one datagram, first letting the reception thread empty the queue
    // whenever it may be full, so that the kernel never has to drop one.
    bool envoyer(const QByteArray &d)
    {
        const qint64 cout = d.size() + 2048; // payload and the kernel's overhead, rounded up
        if ((enVol += cout) > budget) {
            for (QDeadlineTimer fin(20000); etatSocket(port).first > 0; QThread::usleep(500))
                if (fin.hasExpired())
                    return false; // the reception thread no longer reads
            enVol = cout;
        }
        return emetteur.writeDatagram(d, QHostAddress::LocalHostIPv6, port) == d.size();
    }
    // A valid frame of any type from `module`, counted in `attendus`.
    bool envoyerValide(QRandomGenerator &g, const QString &module, QMap<QString, int> &attendus)
    {
        ++attendus[module];
        return envoyer(LETTRES.at(g.bounded(0, 9)) + module.toUtf8() + ":BR:260:215:-36:33:1");
    }

private slots:
    void initTestCase()
    {
        Horloge::figer(QDateTime::fromSecsSinceEpoch(1795000000));
        QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-3600); // grace period over
        bac.activer(0);
        QVERIFY(appli.creerZones() && DoublureApplication::creerBaseAppareil(
                                          bac.chemin("/var/base/itessalin.db"), types));
        acq = new AcquisitionRadio;
        connect(acq, &LogQuintaris::log, this,
                [this](const auto &ligne) { journal << ligne.texte; });
        port = acq->serveurUdp().portLie();
        QFile rmem("/proc/sys/net/core/rmem_default"); // the server's socket keeps the default
        budget = (rmem.open(QIODevice::ReadOnly) ? rmem.readAll().trimmed().toLongLong() : 0) / 2;
        QVERIFY(acq->serveurUdp().estOuvert() && budget > 4096);
    }
    void cleanupTestCase()
    {
        delete acq;
        acq = nullptr;
    }
    void init()
    {
        Horloge::avancer(3600); // what earlier cases stored is now stale
        std::memset(appli.donnees("Zone_HF"), 0, 21600);
        std::memset(appli.donnees(La_config_voies::CLE), 0,
                    size_t(DoublureApplication::tailleZone(La_config_voies::CLE)));
        QFile::remove(base());
        acq->serveurUdp().creerBD();
        acq->recuperer_mesures(); // the cleared configuration empties the registry
        journal.clear();
    }

    void flotDeDatagrammes_data()
    {
        QTest::addColumn<int>("forme");
        QTest::addColumn<QByteArrayList>("morceaux");
        // Any other ASCII byte (zero, blanks, controls, quotes, ':', lower case) or a look-alike.
        QByteArrayList autres{"À", "Ａ", "Ｚ", "А", "Е", "Α", "𝐀", "Ⓐ", "\xC2\xA0"};
        for (int c = 0; c < 128; ++c)
            if (!LETTRES.contains(char(c)))
                autres << QByteArray(1, char(c));
        const QByteArrayList utf8{"\xFF", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                                  "\x80", "\xC3",     "\xE2\x82"};
        const QByteArrayList peu{"", "12", "BR", " ", "' OR '1'='1", "'); DROP TABLE modules; --"};
        const QByteArrayList nombres{"1e309", "-1e309",     "99999999999999999999",    "nan",
                                     "inf",   "2147483648", "1" + QByteArray(400, '0')};
        QTest::newRow("empty or zeros") << int(VIDE) << QByteArrayList();
        QTest::newRow("other type byte first") << int(AVANT) << autres;
        QTest::newRow("broken UTF-8 first") << int(AVANT) << utf8;
        QTest::newRow("quotes first") << int(AVANT) << QByteArrayList{"'", "\"", "`", "');--"};
        QTest::newRow("too few fields, quotes") << int(COURT) << peu;
        QTest::newRow("too few, huge numbers") << int(COURT) << nombres;
        QTest::newRow("too few, broken UTF-8") << int(COURT) << utf8;
        QTest::newRow("zero byte among the needed fields") << int(ZERO) << QByteArrayList();
        QTest::newRow("separators") << int(SEPARATEUR) << QByteArrayList{";", " ", "\t", "："};
        QTest::newRow("1024 bytes and more") << int(LONG) << QByteArrayList();
    }
    void flotDeDatagrammes()
    {
        QFETCH(int, forme);
        QFETCH(QByteArrayList, morceaux);
        const qint64 pertes = etatSocket(port).second;
        QRandomGenerator g(qHash(QByteArray(QTest::currentDataTag()))); // a run per family
        QMap<QString, int> attendus;                                    // frames per module
        const int pas = PAR_FAMILLE / ETRANGES.size();
        for (int i = 0; i < PAR_FAMILLE; ++i) {
            QVERIFY(envoyer(fabriquer(g, forme, morceaux)));
            if (i % 100 == 0)
                QVERIFY(envoyerValide(g, QString("0%1").arg(i % 7), attendus));
            if (i % pas == 0) {
                QVERIFY(envoyer(ETRANGES.at(i / pas).second));
                ++attendus[ETRANGES.at(i / pas).first];
            }
        }
        // Frames are handled one at a time, in order, and the history row is
        // the last thing a frame writes: the closing frame's row ends the run.
        QVERIFY(envoyerValide(g, "fin", attendus));
        QTRY_COMPARE_WITH_TIMEOUT(colonne("select count(*) from mesures_hf where module = 'fin'"),
                                  QStringList("1"), 30000);
        QCOMPARE(etatSocket(port), qMakePair(qint64(0), pertes)); // every datagram read

        QStringList comptes, zone, lectures;
        for (auto a = attendus.cbegin(); a != attendus.cend(); ++a)
            comptes << a.key() + '=' + QString::number(*a);
        QCOMPARE(colonne("select module || '=' || count(*) from mesures_hf group by module"),
                 trie(comptes));
        QCOMPARE(colonne("select module from modules"), attendus.keys());
        const QByteArray octets = appli.octetsZoneHF(); // slots are taken lowest first
        for (int slot = 0; slot < 100 && octets.at(slot * 216) != 0; ++slot)
            zone << QString::fromUtf8(texte(octets, slot, NUMERO));
        QCOMPARE(trie(zone), attendus.keys());
        for (const DonneesUDP &d : acq->serveurUdp().copieDonneesUDP())
            lectures << d.module;
        QCOMPARE(trie(lectures), attendus.keys());
    }

    // The last channel, a plain radio one, then its record (whose address field
    // ends the zone) rewritten with a malformed field.
    void configurationVoie_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("numero");
        QTest::addColumn<QByteArray>("adresse"); // 120 bytes fill the field: no NUL
        QTest::addColumn<QString>("capteur");    // adresse|parametres...|numero, "": none
        QTest::addColumn<double>("mesure");      // -55: no reading; 123.25: left alone
        const auto rangee = [](const QByteArray &nom, int type, int numero,
                               const QByteArray &adresse, const QString &capteur, double mesure) {
            QTest::newRow(nom.constData()) << type << numero << adresse << capteur << mesure;
        };
        const QByteArray a = "0011:0:" + QByteArray(113, 'x'), b(120, '\xFF');
        rangee("120 bytes", RADIO, 0, a, QString(a).replace(':', '|') + "|0", 21.5);
        rangee("120 separators", RADIO, 0, QByteArray(120, ':'), QString(121, '|') + '0', -55);
        rangee("120 bytes, not UTF-8", RADIO, 0, b, QString(120, QChar(0xFFFD)) + "|0", -55);
        rangee("negative numero", RADIO, INT_MIN, "0011", "0011|" + QString::number(INT_MIN), -55);
        for (const int type : {-1, INT_MIN, 4, INT_MAX}) // 4: one past the last type
            rangee("type " + QByteArray::number(type), type, 0, "0011", QString(), 123.25);
    }
    void configurationVoie()
    {
        QFETCH(int, type);
        QFETCH(int, numero);
        QFETCH(QByteArray, adresse);
        QFETCH(QString, capteur);
        QFETCH(double, mesure);
        const int voie = DoublureApplication::NB_VOIES;
        acq->serveurUdp().traiterDatagram("A0011:BR:260:215:36");
        appli.ecrireVoie(voie, RADIO, "0011", 0, 0.0);
        acq->recuperer_mesures();
        QVERIFY(acq->lesConnexions().value(voie));
        uchar *r = appli.donnees(La_config_voies::CLE) + La_config_voies::debutVoie(voie);
        Champs::ecrireNombre<qint32>(r + La_config_voies::OFFSET_TYPE, type);
        Champs::ecrireNombre<qint32>(r + La_config_voies::OFFSET_NUMERO, numero);
        const int largeur = La_config_voies::LARGEUR_ADRESSE;
        Champs::ecrireTexte(r + La_config_voies::OFFSET_ADRESSE, largeur, adresse, largeur);
        appli.setMesure(voie, 123.25);
        journal.clear();
        acq->recuperer_mesures();

        QStringList vus; // voie|adresse|parametres...|numero
        for (const AcquisitionRadio::capteur &c : acq->lesCapteursRecuperes())
            vus << (QStringList{QString::number(c.voie), c.adresse} + c.parametres
                    << QString::number(c.numero))
                       .join('|');
        QCOMPARE(vus, capteur.isEmpty() ? QStringList() : QStringList("64|" + capteur));
        QCOMPARE(acq->lesConnexions().value(voie) != nullptr, !capteur.isEmpty());
        QCOMPARE(appli.mesure(voie), mesure);
        // Either way the first sensor goes, and no type name is looked up.
        QCOMPARE(journal.filter("Retrait du capteur RJ45"),
                 QStringList("Retrait du capteur RJ45 64"));
        QCOMPARE(journal.filter("inconnu"), QStringList());
        // The supervision reads the same record: a radio channel of 8 characters or more.
        const QList<La_config_voies> radio = fonctions_bases::getLesVoiesRadio("", types);
        QCOMPARE(radio.size(), !capteur.isEmpty() && adresse.size() >= 8 ? 1 : 0);
        if (!radio.isEmpty())
            QCOMPARE(radio.first().adresse(), adresse);
    }
};

QTEST_GUILESS_MAIN(TestEntreesInvalides)
#include "tst_entrees_invalides.moc"
