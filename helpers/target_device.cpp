#include "helpers/target_device.h"

#include "helpers/failure.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>

namespace {

constexpr std::chrono::milliseconds kBusyPoll{50};

// Closes on every way out.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return descriptor_; }
    int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

// Nothing is done to a file that is opened with O_PATH (open(2)): a FIFO does not block,
// a tape does not rewind. Opening its /proc name afterwards reaches that very file, even
// when the name that the user gave points elsewhere by then.
std::string proc_name(int descriptor)
{
    return "/proc/self/fd/" + std::to_string(descriptor);
}

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

// The descriptor, opened and locked, or -1 with errno set.
int open_exclusively(const std::string& name, int flags)
{
    Descriptor descriptor(::open(name.c_str(), flags));
    if (descriptor.get() < 0) {
        return -1;
    }
    if (::flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0) {
        return descriptor.release();
    }
    // Any other errno, such as a file system without locks, is told as it is.
    if (errno == EWOULDBLOCK) {
        errno = EBUSY;
    }
    return -1;
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
    try {
        measure();
    } catch (...) {
        ::close(descriptor_);
        throw;
    }
}

TargetDevice::~TargetDevice()
{
    ::close(descriptor_);
}

std::uint64_t TargetDevice::currentSizeBytes() const
{
    return measure_bytes(descriptor_, isBlockDevice_);
}

void TargetDevice::open(Access access, std::chrono::milliseconds busyWait)
{
    const Descriptor found(::open(path_.c_str(), O_PATH | O_CLOEXEC));
    if (found.get() < 0) {
        throw system_failure(path_, "open", errno);
    }
    isBlockDevice_ = S_ISBLK(checked_mode(path_, found.get()));

    int flags = O_CLOEXEC | (access == Access::Write ? O_RDWR : O_RDONLY);
    if (isBlockDevice_) {
        flags |= O_EXCL;
    }
    const auto deadline = std::chrono::steady_clock::now() + busyWait;
    descriptor_ = open_exclusively(proc_name(found.get()), flags);
    while (descriptor_ < 0 && errno == EBUSY && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kBusyPoll);
        descriptor_ = open_exclusively(proc_name(found.get()), flags);
    }
    if (descriptor_ < 0 && errno == EBUSY) {
        throw Failure(path_ + ": open: the device is in use");
    }
    if (descriptor_ < 0) {
        throw system_failure(path_, "open", errno);
    }
}

void TargetDevice::measure()
{
    if (isBlockDevice_) {
        int bytes = 0;
        if (::ioctl(descriptor_, BLKSSZGET, &bytes) != 0 || bytes <= 0) {
            throw system_failure(path_, "read sector size", errno);
        }
        sectorSizeBytes_ = static_cast<std::uint32_t>(bytes);
    }
    sizeBytes_ = measure_bytes(descriptor_, isBlockDevice_);
    if (sizeBytes_ == 0) {
        throw Failure(path_ + ": the device has no size");
    }
}
