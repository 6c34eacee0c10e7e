#include "app/acquisitionradio.h"
#include "app/options.h"
#include "app/verrouinstance.h"
#include "commun/horloge.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

#include <cstdio>

QTimer *t = nullptr;
bool output = false;

int main(int argc, char *argv[])
{
    // Read first: "--help", "--version" and a refused second start must leave
    // the tunnel, the socket and the segments alone, and the service's
    // constructor restarts the tunnel.
    const Options options = Options::analyser(argc, argv);
    if (options.aide || options.version) {
        std::fputs(options.aide ? Options::texteAide() : Options::texteVersion(), stdout);
        return std::fflush(stdout) == 0 ? 0 : 1;
    }
    const VerrouInstance::Prise verrou = VerrouInstance::prendre(Horloge::maintenantSecondes());
    if (!verrou.message.isEmpty())
        qWarning().noquote() << verrou.message;
    if (verrou.issue == VerrouInstance::Issue::DejaPris)
        return 1;

    QCoreApplication application(argc, argv);

    acq = new AcquisitionRadio;

    output = options.verbeux;
    for (int i = 0; i < options.nbLog; ++i) {
        qDebug() << "Écriture de log";
        acq->setLog();
    }

    // Printed through Latin-1 bytes read back as UTF-8: the "é" comes out as
    // U+FFFD, which is how the appliance's start line has always looked.
    const LogQuintaris::LigneLog demarrage(QStringLiteral("Démarrage de AcquisitionRADIO"));
    qDebug() << demarrage.toString().toLatin1().constData();

    t = new QTimer;
    QObject::connect(t, &QTimer::timeout, acq, &AcquisitionRadio::recuperer_mesures);
    t->start(options.intervalleMs());

    return application.exec();
}
