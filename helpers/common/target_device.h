#pragma once

#include "posix/descriptor.h"

#include <chrono>
#include <cstdint>
#include <string>

/// The block device, or the regular file that stands in for one, that a helper works on.
///
/// It is opened by name once; what was checked is the open descriptor, which is the only
/// thing the helpers use afterwards. While it is open no other helper and no file system
/// can use it: a block device is opened with O_EXCL (open(2): fails when the device is in
/// use by the system, for example mounted), and both kinds are locked with flock(2).
class TargetDevice {
public:
    enum class Access { Read, Write };

    /// Opens an existing device or file. Throws Failure when `path` is missing, is
    /// neither a block device nor a regular file, is in use for longer than `busyWait`,
    /// is to be written and is read-only, or has no size.
    TargetDevice(const std::string& path, Access access, std::chrono::milliseconds busyWait);

    /// As given by the user; for messages only.
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    [[nodiscard]] bool isBlockDevice() const { return isBlockDevice_; }

    /// The size when it was opened.
    [[nodiscard]] std::uint64_t sizeBytes() const { return sizeBytes_; }

    /// The logical block size of a block device, 512 for a file.
    [[nodiscard]] std::uint32_t sectorSizeBytes() const { return sectorSizeBytes_; }

    /// The size as it is now; 0 when the device has gone.
    [[nodiscard]] std::uint64_t currentSizeBytes() const;

private:
    void open(Access access, std::chrono::milliseconds busyWait);
    void measure();

    std::string path_;
    Descriptor descriptor_;
    bool isBlockDevice_ = false;
    std::uint64_t sizeBytes_ = 0;
    std::uint32_t sectorSizeBytes_ = 512;
};
