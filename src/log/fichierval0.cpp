#include "log/fichierval0.h"

#include "commun/environnement.h"
#include "commun/horloge.h"

#include <QFile>
#include <QTextStream>

void FichierVal0::ajouter(const QString &texte, const char *finDeLigne)
{
    QFile fichier(Environnement::chemin(QString::fromLatin1(CHEMIN)));
    if (!fichier.open(QIODevice::Append | QIODevice::Text))
        return;
    QTextStream flux(&fichier);
    flux.setCodec("UTF-8");
    flux << Horloge::maintenant().toString(Qt::TextDate) << ' ' << texte << finDeLigne;
    flux.flush();
    fichier.close();
}
