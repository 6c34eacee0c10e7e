// Bad input: malformed datagrams through the real socket, among frames that
// must all be stored, and malformed records in the main application's zones.

#include "aide_reception.h"
#include "bacasable.h"
#include "doublureapplication.h"

#include "app/acquisitionradio.h"
#include "commun/horloge.h"
#include "connexions/qconnexionrj45.h"
#include "radio/demande_enregistrement.h"
#include "radio/fonctions_bases.h"

#include <QDeadlineTimer>
#include <QRandomGenerator>
#include <QThread>
#include <QtTest>

#include <arpa/inet.h>
#include <climits>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Gen = QRandomGenerator;
const QByteArray LETTRES = "ABCDEFGRZ";
const int SEUILS[] = {3, 4, 3, 4, 5, 3, 3, 3, 3}; // fewest fields each letter accepts
const int PAR_FAMILLE = 6250;                     // 16 families: 100,000 refused datagrams in all
const int UN_VALIDE_SUR = 100;
const int RADIO = 2; // the channel type named "RADIO"

// How a family spoils a frame: what it puts first, too few fields, a zero
// byte before the needed fields, other separators, the needed fields past
// the 1024-byte cut. None leaves a frame that the rules accept, whatever a
// UTF-8 decoder makes of broken sequences (it can drop a ':', never add one).
enum Forme { VIDE, AVANT, COURT, ZERO, SEPARATEUR, LONG };

int entre(Gen &g, int min, int max)
{
    return static_cast<int>(g.bounded(min, max + 1));
}
QByteArray parmi(Gen &g, const QByteArrayList &liste)
{
    return liste.at(entre(g, 0, liste.size() - 1));
}

QByteArray fabriquer(Gen &g, int forme, const QByteArrayList &morceaux)
{
    const int i = entre(g, 0, 8);
    const QByteArray lettre(1, LETTRES.at(i));
    QByteArrayList c; // enough fields for any type, sometimes more
    for (int n = entre(g, 7, 10); n > 0; --n)
        c << QByteArray::number(entre(g, -500, 5000));
    QByteArray trame = lettre + c.join(':');
    if (forme == VIDE)
        return QByteArray(entre(g, 0, 1) ? entre(g, 1, 1100) : 0, '\0');
    if (forme == AVANT)
        return parmi(g, morceaux) + trame;
    if (forme == SEPARATEUR)
        return trame.replace(':', parmi(g, morceaux));
    if (forme == LONG)
        return lettre + "12:" + QByteArray(entre(g, 0, 99) ? entre(g, 1024, 3000) : 64000, 'x') +
               ':' + trame;
    if (forme == ZERO) {
        int dernier = 0; // the separator that completes the needed fields
        for (int n = 1; n < SEUILS[i]; ++n)
            dernier = trame.indexOf(':', dernier + 1);
        return trame.insert(entre(g, 1, dernier), '\0');
    }
    c.clear();
    for (int n = entre(g, 1, SEUILS[i] - 1); n > 0; --n)
        c << parmi(g, morceaux);
    return lettre + c.join(':');
}

// Frames that look wrong yet pass the rules: each is stored like any other.
const QList<QPair<QString, QByteArray>> ETRANGES{
    {"", "A::"},
    {"e1", "Ae1:BR:20:215:36:1:2:3:4:5:6:7"},
    {"e2", QByteArray("Re2:BR:10:36\0X:Y:Z", 18)},
    {"e3", "Ee3:BR:1e309:-1e309:99999999999999999999999:1e300:99999999999"},
    {"e4", "Be4:BR:x:y:z"},
    {"'); DELETE FROM mesures_hf;--", "A'); DELETE FROM mesures_hf;--:p'%1:0:1"},
    {"é€", "Aé€:BR:0:1"},
    {"e5", "Ae5:BR:0:" + QByteArray(1100, '9')},
    {"e6", "Ze6::"},
    {"e7", "Ge7: BR : 12 : 34"},
};

struct Attendu
{
    int nombre = 0;
    QString derniere; // type|valeur|batterie of the last frame
};

// A whole frame of a random type from `module`; the supply indicator goes
// last, as a field that only the type E reads.
QByteArray trameValide(Gen &g, const QString &module, Attendu &a)
{
    const int i = entre(g, 0, 8), b = entre(g, 0, 50);
    QByteArrayList f{LETTRES.at(i) + module.toUtf8(), "BR", QByteArray::number(entre(g, 0, 900))};
    QStringList valeurs;
    for (int n = QByteArray("121221100").at(i) - '0'; n > 0; --n) {
        f << QByteArray::number(entre(g, -999, 9999));
        valeurs << QString::number(f.last().toInt() / 10.0, 'g', 6);
    }
    ++a.nombre;
    a.derniere =
        QStringList{QString(LETTRES.at(i)), valeurs.join(':'), QString::number(b / 10.0)}.join('|');
    return (f << QByteArray::number(b) << "1").join(':');
}

// The receive queue in bytes and the drop count of the UDP socket bound to
// [::1]:port, as the kernel reports them; -1 when there is no such socket.
QPair<qint64, qint64> etatSocket(quint16 port)
{
    QFile f("/proc/net/udp6");
    const QByteArray local = "00000000000000000000000001000000:" +
                             QByteArray::number(port, 16).toUpper().rightJustified(4, '0');
    const QByteArrayList table =
        f.open(QIODevice::ReadOnly) ? f.readAll().split('\n') : QByteArrayList();
    for (const QByteArray &ligne : table) {
        const QByteArrayList c = ligne.simplified().split(' ');
        if (c.size() >= 13 && c.at(1) == local)
            return {c.at(4).split(':').value(1).toLongLong(nullptr, 16), c.at(12).toLongLong()};
    }
    return {-1, -1};
}

QStringList trie(QStringList l)
{
    l.sort();
    return l;
}

} // namespace

class TestEntreesInvalides : public QObject
{
    Q_OBJECT
    const QStringList types{"Aucun", "PT100", "RADIO", "RADIO Contact"};
    BacASable bac;
    DoublureApplication appli;
    QStringList journal;
    int emetteur = -1;
    sockaddr_in6 serveur{};
    qint64 enVol = 0;  // what the receive queue may hold since it was last read
    qint64 budget = 0; // half the receive buffer

    QString base() const { return bac.chemin("/var/base/hf.db"); }

    // Sends one datagram, first letting the reception thread drain the queue
    // to half the budget whenever it may be full, so that the kernel never
    // has to drop one and the queue is read in bursts rather than each time.
    bool envoyer(const QByteArray &d)
    {
        const qint64 cout = d.size() + 2048; // payload and the kernel's overhead, rounded up
        if (enVol + cout > budget) {
            QDeadlineTimer fin(20000);
            for (unsigned long pause = 100;
                 (enVol = etatSocket(ntohs(serveur.sin6_port)).first) > budget / 2 - cout &&
                 enVol > 0;
                 pause = qMin(2 * pause, 4000ul)) { // a frame being stored takes milliseconds
                if (fin.hasExpired())
                    return false; // the reception thread no longer reads
                QThread::usleep(pause);
            }
        }
        enVol += cout;
        return ::sendto(emetteur, d.constData(), size_t(d.size()), 0,
                        reinterpret_cast<const sockaddr *>(&serveur), sizeof serveur) == d.size();
    }

private slots:
    void initTestCase()
    {
        Horloge::figer(QDateTime::fromSecsSinceEpoch(1795000000));
        QConnexionRJ45::dh_demarrage = Horloge::maintenant().addSecs(-3600); // grace period over
        bac.activer(0);
        QVERIFY(
            DoublureApplication::creerBaseAppareil(bac.chemin("/var/base/itessalin.db"), types));
        QString raison;
        QVERIFY2(appli.creerZones(&raison), qPrintable(raison));
        acq = new AcquisitionRadio;
        connect(acq, &LogQuintaris::log, this,
                [this](const auto &ligne) { journal << ligne.texte; });
        QVERIFY(acq->serveurUdp().estOuvert());
        emetteur = ::socket(AF_INET6, SOCK_DGRAM, 0);
        QVERIFY(emetteur >= 0);
        serveur.sin6_family = AF_INET6;
        serveur.sin6_port = htons(acq->serveurUdp().portLie());
        serveur.sin6_addr = in6addr_loopback;
        QFile rmem("/proc/sys/net/core/rmem_default"); // the server's socket keeps the default
        budget = (rmem.open(QIODevice::ReadOnly) ? rmem.readAll().trimmed().toLongLong() : 0) / 2;
        QVERIFY(budget > 4096);
    }
    void cleanupTestCase()
    {
        ::close(emetteur);
        delete acq;
        acq = nullptr;
    }
    void init()
    {
        Horloge::avancer(3600); // each case's records carry a time of their own
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
        QByteArrayList inconnus, minuscules;
        for (int c = 1; c < 128; ++c) {
            if (!LETTRES.contains(char(c)))
                inconnus << QByteArray(1, char(c));
        }
        for (const char c : LETTRES)
            minuscules << QByteArray(1, char(c - 'A' + 'a'));
        const QByteArrayList utf8{
            "\xFF", "\xFE", "\xC0\x80", "\xC1\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
            "\x80", "\xBF", "\xC3",     "\xE2\x82"};
        // clang-format off
        QTest::newRow("empty or zeros") << int(VIDE) << QByteArrayList();
        QTest::newRow("zero byte first") << int(AVANT)
            << QByteArrayList{QByteArray(1, 0), QByteArray(3, 0)};
        QTest::newRow("unknown type byte") << int(AVANT) << inconnus;
        QTest::newRow("lower-case type") << int(AVANT) << minuscules;
        QTest::newRow("look-alike letter") << int(AVANT)
            << QByteArrayList{"À", "Ａ", "Ｚ", "А", "Е", "Α", "Ζ", "𝐀", "Ⓐ"};
        QTest::newRow("broken UTF-8 first") << int(AVANT) << utf8;
        QTest::newRow("blank or control first") << int(AVANT)
            << QByteArrayList{" ", "\t", "\r\n", "\x01", "\x1B", "\x7F", "\xC2\xA0"};
        QTest::newRow("quote first") << int(AVANT)
            << QByteArrayList{"'", "\"", "`", "'; DELETE FROM mesures_hf; --"};
        QTest::newRow("separator first") << int(AVANT) << QByteArrayList{":", "::", ":::::::"};
        QTest::newRow("too few fields") << int(COURT) << QByteArrayList{"", "12", "BR", "-7", " "};
        QTest::newRow("too few, SQL") << int(COURT)
            << QByteArrayList{"' OR '1'='1", "'); DROP TABLE modules; --", "%1%2'", "\\'"};
        QTest::newRow("too few, huge numbers") << int(COURT)
            << QByteArrayList{"1e309", "-1e309", "99999999999999999999", "nan", "inf", "1e-400",
                              "2147483648", "1" + QByteArray(400, '0')};
        QTest::newRow("too few, broken UTF-8") << int(COURT) << utf8;
        QTest::newRow("zero byte among the needed fields") << int(ZERO) << QByteArrayList();
        QTest::newRow("other separators") << int(SEPARATEUR)
            << QByteArrayList{";", ",", " ", "\t", "|", ".", "=", "：", "∶", "﹕", "ː"};
        QTest::newRow("1024 bytes and more") << int(LONG) << QByteArrayList();
        // clang-format on
    }
    void flotDeDatagrammes()
    {
        QFETCH(int, forme);
        QFETCH(QByteArrayList, morceaux);
        const quint16 port = acq->serveurUdp().portLie();
        const qint64 pertes = etatSocket(port).second;
        QVERIFY(pertes >= 0);
        const char *famille = QTest::currentDataTag();
        Gen g(20261115u + qChecksum(famille, uint(qstrlen(famille))));
        QMap<QString, Attendu> attendus;
        for (int i = 0; i < PAR_FAMILLE; ++i) {
            QVERIFY(envoyer(fabriquer(g, forme, morceaux)));
            if (i % UN_VALIDE_SUR == 0) {
                const QString module = QString("0%1").arg(i % 7);
                QVERIFY(envoyer(trameValide(g, module, attendus[module])));
            }
            const int e = i * ETRANGES.size() / PAR_FAMILLE;
            if (e != (i + 1) * ETRANGES.size() / PAR_FAMILLE) {
                QVERIFY(envoyer(ETRANGES.at(e).second));
                ++attendus[ETRANGES.at(e).first].nombre;
            }
        }
        // Frames are handled one at a time, in order, and the history row is
        // the last thing a frame writes: the closing frame's row ends the run.
        QVERIFY(envoyer(trameValide(g, "fin", attendus["fin"])));
        QTRY_COMPARE_WITH_TIMEOUT(
            lignes(base(), "select count(*) from mesures_hf where module = 'fin'"), QString("1"),
            30000);
        QCOMPARE(etatSocket(port).first, qint64(0));
        QCOMPARE(etatSocket(port).second, pertes); // nothing dropped: every datagram was read

        const auto colonne = [this](const char *sql) {
            return trie(lignes(base(), sql).split('\n'));
        };
        QStringList comptes, zone, lectures;
        for (auto a = attendus.cbegin(); a != attendus.cend(); ++a)
            comptes << a.key() + '=' + QString::number(a->nombre);
        const QStringList modules = trie(attendus.keys());
        QCOMPARE(colonne("select module || '=' || count(*) from mesures_hf group by module"),
                 trie(comptes));
        QCOMPARE(colonne("select module from modules"), modules);
        const QByteArray octets = appli.octetsZoneHF();
        for (int slot = 0; slot < 100; ++slot) {
            if (octets.at(slot * 216) != 0 || octets.at(slot * 216 + NUMERO) != 0)
                zone << QString::fromUtf8(texte(octets, slot, NUMERO));
        }
        QCOMPARE(trie(zone), modules);
        const QList<DonneesUDP> donnees = acq->serveurUdp().copieDonneesUDP();
        for (const DonneesUDP &d : donnees) {
            if (d.dateheure == Horloge::maintenant())
                lectures << d.module;
        }
        QCOMPARE(trie(lectures), modules);

        // The last frame of each module is its reading, in the history and the table.
        for (auto a = attendus.cbegin(); a != attendus.cend(); ++a) {
            if (a->derniere.isEmpty())
                continue;
            const QString sql = "select valeur, batterie from mesures_hf where module = '%1' "
                                "order by rowid desc limit 1";
            QCOMPARE(lignes(base(), sql.arg(a.key())), a->derniere.section('|', 1));
            QCOMPARE(enregistrement(octets, slotDe(octets, a.key().toUtf8())).section('|', 3, 5),
                     a->derniere);
        }
    }

    // A plain radio channel whose record is then rewritten with a malformed
    // field. Sensor: address, parameters and numero joined by '|'; empty
    // when the channel must no longer be registered.
    void configurationVoie_data()
    {
        QTest::addColumn<int>("voie");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("numero");
        QTest::addColumn<QByteArray>("adresse"); // 120 bytes fill the field: no NUL
        QTest::addColumn<QString>("capteur");
        QTest::addColumn<double>("mesure");
        const double defaut = -55.0, inchangee = 123.25;
        const QByteArray a = "0011";
        // clang-format off
        QTest::newRow("120 bytes, last channel") << 64 << RADIO << 0
            << QByteArray("0011:0:" + QByteArray(113, 'x'))
            << QString("0011|0|" + QString(113, 'x') + "|0") << 21.5;
        QTest::newRow("120 separators") << 64 << RADIO << 0
            << QByteArray(120, ':') << QString(121, '|') + '0' << defaut;
        QTest::newRow("120 bytes, not UTF-8") << 64 << RADIO << 0
            << QByteArray(120, '\xFF') << QString(120, QChar(0xFFFD)) + "|0" << defaut;
        QTest::newRow("negative numero") << 1 << RADIO << INT_MIN << a
            << "0011|" + QString::number(INT_MIN) << defaut;
        for (const int type : {-1, INT_MIN, 4, INT_MAX}) // 4: one past the last type
            QTest::addRow("type %d", type) << 5 << type << 0 << a << QString() << inchangee;
        // clang-format on
    }
    void configurationVoie()
    {
        QFETCH(int, voie);
        QFETCH(int, type);
        QFETCH(int, numero);
        QFETCH(QByteArray, adresse);
        QFETCH(QString, capteur);
        QFETCH(double, mesure);
        acq->serveurUdp().traiterDatagram("A0011:BR:260:215:36");
        appli.ecrireVoie(voie, RADIO, "0011", 0, 0.0);
        acq->recuperer_mesures();
        QVERIFY(acq->lesConnexions().value(voie));

        uchar *r = appli.donnees(La_config_voies::CLE) + La_config_voies::debutVoie(voie);
        Champs::ecrireNombre<qint32>(r + La_config_voies::OFFSET_TYPE, type);
        Champs::ecrireNombre<qint32>(r + La_config_voies::OFFSET_NUMERO, numero);
        std::memset(r + La_config_voies::OFFSET_ADRESSE, 0, La_config_voies::LARGEUR_ADRESSE);
        std::memcpy(r + La_config_voies::OFFSET_ADRESSE, adresse.constData(),
                    size_t(adresse.size()));
        appli.setMesure(voie, 123.25);
        journal.clear();
        acq->recuperer_mesures();

        QString vu;
        for (const AcquisitionRadio::capteur &c : acq->lesCapteursRecuperes()) {
            if (c.voie == voie)
                vu = (QStringList(c.adresse) + c.parametres << QString::number(c.numero)).join('|');
        }
        QCOMPARE(vu, capteur);
        QCOMPARE(acq->lesConnexions().value(voie) != nullptr, !capteur.isEmpty());
        QCOMPARE(appli.mesure(voie), mesure);
        // Either way the first sensor goes, and no type name is looked up.
        QCOMPARE(journal.filter("Retrait du capteur RJ45"),
                 QStringList("Retrait du capteur RJ45 " + QString::number(voie)));
        QCOMPARE(journal.filter("inconnu"), QStringList());
        // The supervision reads the same record: a radio channel of 8 characters or more.
        const QList<La_config_voies> radio = fonctions_bases::getLesVoiesRadio("", types);
        QCOMPARE(radio.size(), !capteur.isEmpty() && adresse.size() >= 8 ? 1 : 0);
        if (!radio.isEmpty())
            QCOMPARE(radio.first().adresse(), adresse);
    }

    // A module record whose texts fill their fields, as the main application
    // may leave them: found, saved and rated by its 50-byte address.
    void zoneHFSansNul_data()
    {
        QTest::addColumn<int>("slot");
        QTest::addColumn<bool>("present");
        QTest::newRow("first slot") << 0 << true;
        QTest::newRow("last slot") << 99 << true;
        QTest::newRow("last slot, removed") << 99 << false;
    }
    void zoneHFSansNul()
    {
        QFETCH(int, slot);
        QFETCH(bool, present);
        const QByteArray n(50, 'N'), p(50, 'P');
        gestion_radio gr;
        std::memset(&gr, 'v', sizeof gr); // no NUL anywhere in the record
        gr.present = present;
        std::memcpy(gr.numero, n.constData(), 50);
        std::memcpy(gr.parent, p.constData(), 50);
        gr.rank = 300;
        gr.date_changement_pile = 1700000123;
        appli.ecrireModule(slot, gr);
        lignes(base(), "insert into modules (module, date_changement_pile) values ('" + QString(n) +
                           "', -1)");

        // A child heard twice: under the record when it is live, else under the appliance.
        for (int i = 0; i < 2; ++i)
            acq->serveurUdp().traiterDatagram("A0022:" + n + ":420:1");
        const QByteArray zone = appli.octetsZoneHF();
        const int enfant = slotDe(zone, "0022");
        QCOMPARE(nombre<qint32>(zone, enfant, 184), present ? 2 : 1);
        QCOMPARE(nombre<double>(zone, enfant, 176), present ? 42.0 - 300 : 42.0 - 13);

        // Saved on request: the 50-byte address names the row to update or delete.
        appli.setOctetDemande(Demande_enregistrement::OFFSET_ENREGISTRER_DONNEES_RADIO, 1);
        acq->recuperer_mesures();
        QVERIFY(journal.contains(QString("recuperer_mesures : setModuleBD %1 %2 1700000123 %3")
                                     .arg(slot)
                                     .arg(QString(n))
                                     .arg(int(present))));
        QCOMPARE(lignes(base(), "select date_changement_pile from modules where module = '" +
                                    QString(n) + "'"),
                 present ? "1700000123" : "");

        // Heard from, it keeps its slot (a removed one comes back as new);
        // two frames 45 s apart rate it 100 %.
        for (int i = 0; i < 2; ++i, Horloge::avancer(45))
            acq->serveurUdp().traiterDatagram("A" + n + ':' + p + ":130:215:36");
        acq->serveurUdp().calculerTauxInfosTrames();
        const QByteArray apres = appli.octetsZoneHF();
        QCOMPARE(slotDe(apres, n), slot);
        QCOMPARE(enregistrement(apres, slot), QString("1|" + n + '|' + p + "|A|21.5|3.6|13|0|1|") +
                                                  (present ? "1700000123" : "-1"));
        QCOMPARE(nombre<double>(apres, slot, 192), 100.0);
    }
};

QTEST_GUILESS_MAIN(TestEntreesInvalides)
#include "tst_entrees_invalides.moc"
