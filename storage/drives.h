#pragma once

#include "storage/drive.h"

#include <vector>

/// Lists this computer's drives with their partitions, ascending by device path, from the
/// disk service. Optical discs and devices without a size are left out. Blocks for the
/// whole enumeration (one bus call a device). Failures become log lines and fewer drives,
/// possibly none.
[[nodiscard]] std::vector<Drive> get_drives();
