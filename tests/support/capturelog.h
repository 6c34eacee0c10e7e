#ifndef CAPTURELOG_H
#define CAPTURELOG_H

#include <QString>
#include <QStringList>

// Collects every line written through Qt's debug stream while it lives, from
// any thread, so that tests can check the service's log texts.
class CaptureLog
{
public:
    CaptureLog();
    ~CaptureLog();
    CaptureLog(const CaptureLog &) = delete;
    CaptureLog &operator=(const CaptureLog &) = delete;

    QStringList lignes() const;
    void vider();
    // Lines that contain `texte`, in order.
    QStringList contenant(const QString &texte) const;
    int compter(const QString &texte) const { return contenant(texte).size(); }
};

#endif // CAPTURELOG_H
