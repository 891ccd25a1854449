#pragma once

#include "storage/drive.h"

#include <optional>
#include <vector>

/// Lists this computer's drives with their partitions, ascending by device path, from the
/// disk service. Optical discs and devices without a size are left out. Blocks for the
/// whole enumeration (one bus call a device). Failures become log lines and fewer drives,
/// possibly none.
[[nodiscard]] std::vector<Drive> get_drives();

/// What the disk service says now of the drive at a listed drive's path, without its partitions;
/// nothing when it does not say. It may be another drive: see is_other_drive().
[[nodiscard]] std::optional<Drive> get_drive_again(const Drive& listed);
