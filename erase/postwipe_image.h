#pragma once

#include "storage/drive.h"

#include <QString>

/// Writes the picture that tells that a drive was erased, or partially erased when the wipe
/// was stopped before its end: an 800 by 600 PNG under a unique name in the library
/// directory. It stays there for the format job. Returns its absolute path, or a null string
/// after setting `*error` (unless null) to a translated message.
[[nodiscard]] QString create_postwipe_image_file(const Drive& drive, bool partial, QString* error);
