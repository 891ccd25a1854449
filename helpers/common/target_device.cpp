#include "helpers/common/target_device.h"

#include "helpers/common/failure.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>

namespace {

constexpr std::chrono::milliseconds kBusyPoll{50};

mode_t checked_mode(const std::string& path, int descriptor)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        throw system_failure(path, "stat", errno);
    }
    if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)) {
        throw Failure(path + ": open: neither a block device nor a regular file");
    }
    return status.st_mode;
}

// Opened and locked, or none with errno set; EBUSY when someone else has it.
Descriptor open_exclusively(const std::string& name, int flags)
{
    Descriptor descriptor(::open(name.c_str(), flags));
    if (!descriptor.isOpen() || ::flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0) {
        return descriptor;
    }
    // Any other errno, such as a file system without locks, is told as it is.
    if (errno == EWOULDBLOCK) {
        errno = EBUSY;
    }
    return Descriptor();
}

Descriptor wait_and_open_exclusively(const std::string& name, int flags,
                                     std::chrono::milliseconds busyWait)
{
    const auto deadline = std::chrono::steady_clock::now() + busyWait;
    Descriptor descriptor = open_exclusively(name, flags);
    while (!descriptor.isOpen() && errno == EBUSY && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kBusyPoll);
        descriptor = open_exclusively(name, flags);
    }
    return descriptor;
}

std::uint64_t measure_bytes(int descriptor, bool isBlockDevice)
{
    if (isBlockDevice) {
        std::uint64_t bytes = 0;
        return ::ioctl(descriptor, BLKGETSIZE64, &bytes) == 0 ? bytes : 0;
    }
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

} // namespace

TargetDevice::TargetDevice(const std::string& path, Access access,
                           std::chrono::milliseconds busyWait)
    : path_(path)
{
    open(access, busyWait);
    measure();
}

std::uint64_t TargetDevice::currentSizeBytes() const
{
    return measure_bytes(descriptor_.get(), isBlockDevice_);
}

void TargetDevice::open(Access access, std::chrono::milliseconds busyWait)
{
    // Nothing is done to a file that is opened with O_PATH (open(2)): a FIFO does not block,
    // a tape does not rewind.
    const Descriptor found(::open(path_.c_str(), O_PATH | O_CLOEXEC));
    if (!found.isOpen()) {
        throw system_failure(path_, "open", errno);
    }
    isBlockDevice_ = S_ISBLK(checked_mode(path_, found.get()));

    int flags = O_CLOEXEC | (access == Access::Write ? O_RDWR : O_RDONLY);
    if (isBlockDevice_) {
        flags |= O_EXCL;
    }
    descriptor_ = wait_and_open_exclusively(found.procName(), flags, busyWait);
    if (!descriptor_.isOpen() && errno == EBUSY) {
        throw Failure(path_ + ": open: the device is in use");
    }
    if (!descriptor_.isOpen()) {
        throw system_failure(path_, "open", errno);
    }
    // The kernel opens a write-protected drive for writing all the same; every single sector
    // would then be refused, one by one.
    int isReadOnly = 0;
    if (access == Access::Write && isBlockDevice_ &&
        ::ioctl(descriptor_.get(), BLKROGET, &isReadOnly) == 0 && isReadOnly != 0) {
        throw Failure(path_ + ": open: the device is read-only; look for a write-protect switch");
    }
}

void TargetDevice::measure()
{
    if (isBlockDevice_) {
        int bytes = 0;
        if (::ioctl(descriptor_.get(), BLKSSZGET, &bytes) != 0 || bytes <= 0) {
            throw system_failure(path_, "read sector size", errno);
        }
        sectorSizeBytes_ = static_cast<std::uint32_t>(bytes);
    }
    sizeBytes_ = measure_bytes(descriptor_.get(), isBlockDevice_);
    if (sizeBytes_ == 0) {
        throw Failure(path_ + ": the device has no size");
    }
}
