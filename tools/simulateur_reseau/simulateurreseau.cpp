#include "simulateurreseau.h"

#include <QDateTime>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {
constexpr double RANG_PAR_NIVEAU = 13.0;
constexpr int PROFONDEUR_MAXIMUM = 20;
// Modules started together would all speak in the same millisecond.
constexpr double ECART_DEMARRAGE = 0.15;
} // namespace

SimulateurReseau::SimulateurReseau(const QList<ModuleSimule> &modules, const QHostAddress &adresse,
                                   quint16 port, bool bavard, QObject *parent)
    : QObject(parent)
    , modules(modules)
    , adresse(adresse)
    , port(port)
    , bavard(bavard)
{
    calculerRangs(&this->modules);
    for (int i = 0; i < this->modules.size(); ++i) {
        numerosTrame.append(0);
        silencieux.append(false);
    }
    depuis.start();
}

void SimulateurReseau::calculerRangs(QList<ModuleSimule> *modules)
{
    for (ModuleSimule &m : *modules) {
        if (m.rank >= 0.0)
            continue;
        int profondeur = 1;
        QString parent = m.parent;
        // A loop in the parents stops at a fixed depth instead of running on.
        while (profondeur < PROFONDEUR_MAXIMUM) {
            const auto suivant = std::find_if(
                modules->cbegin(), modules->cend(),
                [&parent](const ModuleSimule &autre) { return autre.adresse == parent; });
            if (suivant == modules->cend())
                break;
            parent = suivant->parent;
            ++profondeur;
        }
        m.rank = RANG_PAR_NIVEAU * (profondeur + 1);
    }
}

void SimulateurReseau::demarrer()
{
    for (int i = 0; i < modules.size(); ++i) {
        const ModuleSimule &m = modules.at(i);
        double decalage = m.decalage;
        if (decalage < 0.0)
            decalage = std::fmod(ECART_DEMARRAGE * i, m.periode);
        auto *minuterie = new QTimer(this);
        minuterie->setInterval(static_cast<int>(m.periode * 1000));
        connect(minuterie, &QTimer::timeout, this, [this, i] { envoyer(i); });
        QTimer::singleShot(static_cast<int>(decalage * 1000), this, [this, i, minuterie] {
            envoyer(i);
            minuterie->start();
        });
    }
}

void SimulateurReseau::envoyerUneFois()
{
    for (int i = 0; i < modules.size(); ++i)
        envoyer(i);
    emit termine();
}

void SimulateurReseau::envoyer(int index)
{
    const ModuleSimule &m = modules.at(index);
    const double secondes = depuis.elapsed() / 1000.0;
    if (m.estSilencieux(secondes)) {
        if (!silencieux.at(index)) {
            const double fin = m.finDuSilence(secondes);
            afficher(fin < 0.0 ? QStringLiteral("%1 falls silent for good").arg(m.adresse)
                               : QStringLiteral("%1 falls silent until +%2 s")
                                     .arg(m.adresse)
                                     .arg(fin, 0, 'f', 0));
        }
        silencieux[index] = true;
        return;
    }
    if (silencieux.at(index))
        afficher(QStringLiteral("%1 speaks again").arg(m.adresse));
    silencieux[index] = false;
    const QByteArray trame = m.trame(secondes, numerosTrame[index]++);
    if (socket.writeDatagram(trame, adresse, port) != trame.size())
        afficher(
            QStringLiteral("%1: not sent: %2").arg(QString::fromUtf8(trame), socket.errorString()));
    else
        afficher(QStringLiteral("-> ") + QString::fromUtf8(trame));
}

void SimulateurReseau::afficher(const QString &texte) const
{
    if (!bavard)
        return;
    const QString ligne =
        QStringLiteral("%1 +%2s  %3")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("hh:mm:ss")))
            .arg(depuis.elapsed() / 1000.0, 0, 'f', 1)
            .arg(texte);
    std::fprintf(stdout, "%s\n", ligne.toUtf8().constData());
    std::fflush(stdout);
}
