#include "app/base/abandon.h"

#include <QObject>

void abandon(QObject* object)
{
    // Never destroyed, and neither are its children.
    static auto* const keeper = new QObject;
    object->setParent(keeper);
}
