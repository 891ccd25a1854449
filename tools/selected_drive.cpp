#include "tools/selected_drive.h"

#include <QVariant>
#include <QWizard>

namespace {

const char* const kProperty = "selectedDrive";

} // namespace

Drive sDrive;

void select_drive(QWizard* wizard, const Drive& drive)
{
    sDrive = drive;
    if (wizard != nullptr) {
        wizard->setProperty(kProperty, QVariant::fromValue(drive));
    }
}

Drive selected_drive(const QWizard* wizard)
{
    const QVariant chosen = wizard != nullptr ? wizard->property(kProperty) : QVariant();
    return chosen.isValid() ? chosen.value<Drive>() : sDrive;
}
