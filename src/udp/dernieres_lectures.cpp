#include "udp/dernieres_lectures.h"

void DernieresLectures::remplacer(const DonneesUDP &lecture, qint64 maintenant)
{
    const auto ancienne = parModule.constFind(lecture.module);
    if (ancienne != parModule.constEnd())
        parOrdre.erase(ancienne.value());
    parOrdre.push_back(lecture);
    parModule.insert(lecture.module, std::prev(parOrdre.end()));

    // Frames come in time order but for a clock set back: a reading dated
    // ahead stays until its time is past.
    while (!parOrdre.empty() &&
           parOrdre.front().dateheure.toSecsSinceEpoch() < maintenant - AGE_UTILE) {
        parModule.remove(parOrdre.front().module);
        parOrdre.pop_front();
    }
}

bool DernieresLectures::lecture(const QString &module, DonneesUDP *copie) const
{
    const auto trouvee = parModule.constFind(module);
    if (trouvee == parModule.constEnd())
        return false;
    *copie = *trouvee.value();
    return true;
}

QList<DonneesUDP> DernieresLectures::copie() const
{
    QList<DonneesUDP> liste;
    liste.reserve(static_cast<int>(parOrdre.size()));
    for (const DonneesUDP &d : parOrdre)
        liste.append(d);
    return liste;
}
