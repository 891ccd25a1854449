#pragma once

#include "storage/drive.h"

#include <QProcessEnvironment>
#include <QString>

/// What has to be known before a listed drive is written to: its path may lead to another drive
/// by now.
struct DriveCheck {
    QString refusal;                 ///< For people, what is there now instead; else empty.
    QProcessEnvironment environment; ///< For the helper, which compares what it has opened.
};

/// Asks the disk service what is at the drive's path now. Where it does not answer there is no
/// refusal: the helper's own look at the device decides.
[[nodiscard]] DriveCheck check_drive(const Drive& listed);
