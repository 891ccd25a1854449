#pragma once

#include "diskservice/source/device_record.h"

#include <cstdint>
#include <string>
#include <vector>

/// What the kernel's mount table (proc(5), mountinfo) says at one moment about file systems on
/// block devices and in image files, whoever mounted them.
class MountTable {
public:
    /// Reads root/proc and root/sys; without them nothing is found.
    explicit MountTable(const std::string& root = {});

    /// Where the device is mounted, the oldest mount first.
    [[nodiscard]] std::vector<std::string> pathsOf(const DeviceRecord& device) const;

private:
    struct Mount {
        std::string path;
        dev_t number = 0;
        std::string backingFile; ///< Of a loop device, else empty.
        std::uint64_t offsetBytes = 0;
    };
    std::vector<Mount> mounts_;
};
