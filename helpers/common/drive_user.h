#pragma once

#include <sys/types.h>

#include <string>

/// What uses a block device or a partition of it for longer than a moment, for the user:
/// "mounted at /home", "swap space", "held by md0"; or nothing. Reads root/sys and root/proc.
[[nodiscard]] std::string find_drive_user(dev_t number, const std::string& root = {});
