#include "app/acquisitionradio.h"
#include "app/options.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

QTimer *t = nullptr;
bool output = false;

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);

    acq = new AcquisitionRadio;

    const Options options = Options::analyser(argc, argv);
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
