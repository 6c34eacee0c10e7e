#include "lecteurlignes.h"

#include <QFile>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int PERIODE_SUIVI_MS = 200;
}

LecteurLignes::LecteurLignes(QObject *parent)
    : QObject(parent)
{}

LecteurLignes::~LecteurLignes()
{
    delete notificateur;
    if (possedeDescripteur && descripteur >= 0)
        ::close(descripteur);
    if (!fifoCreee.isEmpty())
        ::unlink(QFile::encodeName(fifoCreee).constData());
}

bool LecteurLignes::ouvrirEntreeStandard()
{
    descripteur = STDIN_FILENO;
    notificateur = new QSocketNotifier(descripteur, QSocketNotifier::Read, this);
    connect(notificateur, &QSocketNotifier::activated, this, &LecteurLignes::lireDescripteur);
    return true;
}

bool LecteurLignes::ouvrirChemin(const QString &chemin, QString *erreur)
{
    const QByteArray nom = QFile::encodeName(chemin);
    struct stat etat;
    if (::stat(nom.constData(), &etat) != 0) {
        if (errno != ENOENT || ::mkfifo(nom.constData(), 0600) != 0) {
            *erreur =
                QStringLiteral("%1: %2").arg(chemin, QString::fromLocal8Bit(std::strerror(errno)));
            return false;
        }
        fifoCreee = chemin;
        etat.st_mode = S_IFIFO;
    }
    if (S_ISFIFO(etat.st_mode)) {
        descripteur = ::open(nom.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (descripteur < 0) {
            *erreur =
                QStringLiteral("%1: %2").arg(chemin, QString::fromLocal8Bit(std::strerror(errno)));
            return false;
        }
        possedeDescripteur = true;
        notificateur = new QSocketNotifier(descripteur, QSocketNotifier::Read, this);
        connect(notificateur, &QSocketNotifier::activated, this, &LecteurLignes::lireDescripteur);
        return true;
    }
    cheminFichier = chemin;
    suivi = new QTimer(this);
    connect(suivi, &QTimer::timeout, this, &LecteurLignes::lireFichier);
    suivi->start(PERIODE_SUIVI_MS);
    lireFichier();
    return true;
}

void LecteurLignes::lireDescripteur()
{
    char bloc[4096];
    const ssize_t n = ::read(descripteur, bloc, sizeof bloc);
    if (n > 0) {
        tampon.append(bloc, static_cast<int>(n));
        decouper();
        return;
    }
    if (n < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    // End of input (or an error that would repeat for ever): stop listening.
    notificateur->setEnabled(false);
    if (!tampon.isEmpty()) {
        tampon.append('\n');
        decouper();
    }
    emit fin();
}

void LecteurLignes::lireFichier()
{
    QFile fichier(cheminFichier);
    if (!fichier.open(QIODevice::ReadOnly))
        return;
    if (fichier.size() < positionFichier)
        positionFichier = 0; // truncated and rewritten: start again
    if (!fichier.seek(positionFichier))
        return;
    const QByteArray nouveau = fichier.readAll();
    positionFichier += nouveau.size();
    tampon.append(nouveau);
    decouper();
}

void LecteurLignes::decouper()
{
    int finLigne = tampon.indexOf('\n');
    while (finLigne >= 0) {
        const QString texte = QString::fromUtf8(tampon.left(finLigne)).trimmed();
        tampon.remove(0, finLigne + 1);
        emit ligne(texte);
        finLigne = tampon.indexOf('\n');
    }
}
