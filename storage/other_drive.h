#pragma once

#include "storage/drive.h"

/// Whether a drive that is found at a listed drive's path is another one: its model, serial or
/// size differs, or it was attached anew and does not say all of that. An answer that merely
/// lacks something is no other drive: a probe under load may come too late.
[[nodiscard]] bool is_other_drive(const Drive& listed, const Drive& now);
