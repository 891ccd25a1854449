#pragma once

#include "posix/descriptor.h"

#include <sys/stat.h>

#include <cstdint>
#include <string>

struct ExpectedDrive;

/// The block device, or the regular file that stands in for one, that a helper works on.
///
/// It is opened by name once; what was checked is the open descriptor, which is the only
/// thing the helpers use afterwards. While it is open no other helper and no file system
/// can use it: a block device is opened with O_EXCL (open(2): fails when the device is in
/// use by the system, for example mounted), and both kinds are locked with flock(2).
class TargetDevice {
public:
    enum class Access { Read, Write };

    /// Opens an existing device or file. Throws Failure when `path` is missing, is neither a block
    /// device nor a regular file or is one in the place of a device, is in use, is to be written
    /// and is read-only, has no size, or is not the drive that is expected.
    ///
    /// A block device that is mounted, used as swap space or part of another device is in use at
    /// once; any other is waited for up to a minute, as udev and others that look at it hold it
    /// for a while, and a regular file for two seconds.
    TargetDevice(const std::string& path, Access access, const ExpectedDrive& expected);

    /// The path as given by the user, of a block device with its model and serial number behind
    /// it where they are known; for messages only.
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] int descriptor() const { return descriptor_.get(); }
    [[nodiscard]] bool isBlockDevice() const { return isBlockDevice_; }

    /// The size when it was opened.
    [[nodiscard]] std::uint64_t sizeBytes() const { return sizeBytes_; }

    /// The logical block size of a block device, 512 for a file.
    [[nodiscard]] std::uint32_t sectorSizeBytes() const { return sectorSizeBytes_; }

    /// The size as it is now; 0 when the device has gone.
    [[nodiscard]] std::uint64_t currentSizeBytes() const;

private:
    void identify(const std::string& path, int descriptor);
    void open(const std::string& procName, Access access);
    void measure();
    void compare(const std::string& path, const ExpectedDrive& expected) const;

    std::string name_;
    dev_t number_ = 0; ///< Of a block device.
    Descriptor descriptor_;
    bool isBlockDevice_ = false;
    std::uint64_t sizeBytes_ = 0;
    std::uint32_t sectorSizeBytes_ = 512;
};

/// Whether a regular file lies where only device files belong, as one does that somebody wrote to
/// the path of a drive that had gone: in the folder /dev itself, or on the file system mounted
/// there, but not on one of its own below it, such as /dev/shm. `path` has no links; `folder` is
/// what stat(2) says of /dev, `parent` of the folder above.
[[nodiscard]] bool is_among_devices(const std::string& path, const struct stat& file,
                                    const struct stat& folder, const struct stat& parent);
