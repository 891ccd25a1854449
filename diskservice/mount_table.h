#pragma once

#include "diskservice/device_record.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the kernel's mount table (proc(5), mountinfo) says at one moment about file systems
/// in image files, whoever mounted them.
class MountTable {
public:
    /// Reads the table; without /proc or /sys nothing is found.
    MountTable();

    /// Where the device of an image file is mounted, the oldest mount first.
    [[nodiscard]] std::vector<std::string> pathsOf(const DeviceRecord& device) const;

private:
    struct Mount {
        std::string path;
        std::string backingFile;
        std::uint64_t offsetBytes = 0;
    };
    std::vector<Mount> mounts_;
};
