#include "erase/drive_check.h"

#include "app/display/display_helpers.h"
#include "helpers/protocol/expected_drive.h"
#include "storage/drives.h"
#include "storage/other_drive.h"

#include <QObject>

namespace {

QString other_drive_text(const Drive& now)
{
    return QObject::tr("another drive is at %1 now: %2, serial number %3")
        .arg(QString::fromLatin1(now.device()), drive_string_short(now),
             QString::fromLatin1(now.serial()));
}

// An unchanged drive that was only attached anew has a new number.
QProcessEnvironment environment_for(const Drive& drive)
{
    if (drive.diskSequence() == 0) {
        return QProcessEnvironment(QProcessEnvironment::InheritFromParent);
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QLatin1String(kExpectedDiskSequence), QString::number(drive.diskSequence()));
    return environment;
}

} // namespace

DriveCheck check_drive(const Drive& listed)
{
    const Drive now = get_drive_again(listed).value_or(listed);
    if (is_other_drive(listed, now)) {
        return {other_drive_text(now), {}};
    }
    return {{}, environment_for(now.diskSequence() != 0 ? now : listed)};
}
