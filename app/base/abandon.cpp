#include "app/base/abandon.h"

#include <QObject>
#include <QProcess>

void abandon(QObject* object)
{
    // Never destroyed, and neither are its children.
    static auto* const keeper = new QObject;
    object->setParent(keeper);
}

void kill_and_abandon(QProcess* child)
{
    abandon(child); // at the end of the run no event loop comes any more
    if (child->state() == QProcess::NotRunning) {
        child->deleteLater();
        return;
    }
    QObject::connect(child, &QProcess::finished, child, &QObject::deleteLater);
    child->kill();
}
