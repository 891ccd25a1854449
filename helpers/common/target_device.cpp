#include "helpers/common/target_device.h"

#include "helpers/common/drive_user.h"
#include "helpers/common/failure.h"
#include "helpers/common/which_drive.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kBusyPoll{50};
constexpr std::chrono::seconds kDeviceBusyWait{60};
constexpr std::chrono::seconds kFileBusyWait{2}; // for a helper that was just killed
const std::string kDevices = "/dev/";

bool is_among_devices(const std::string& path, const struct stat& file)
{
    struct stat folder = {};
    struct stat parent = {};
    return ::stat(kDevices.c_str(), &folder) == 0 && ::stat("/", &parent) == 0 &&
           ::is_among_devices(path, file, folder, parent);
}

struct stat checked_status(const std::string& path, int descriptor)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        throw system_failure(path, "stat", errno);
    }
    if (!S_ISBLK(status.st_mode) && !S_ISREG(status.st_mode)) {
        throw Failure(path + ": open: neither a block device nor a regular file");
    }
    std::error_code error;
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    if (S_ISREG(status.st_mode) &&
        is_among_devices(std::filesystem::read_symlink(link, error).string(), status)) {
        throw Failure(path + ": open: a regular file in the place of a device is no drive");
    }
    return status;
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

bool is_among_devices(const std::string& path, const struct stat& file, const struct stat& folder,
                      const struct stat& parent)
{
    const bool isBelow = path.starts_with(kDevices);
    const bool isDirectlyBelow = isBelow && path.find('/', kDevices.size()) == std::string::npos;
    const bool isMountPoint = folder.st_dev != parent.st_dev;
    return isDirectlyBelow || (file.st_dev == folder.st_dev && (isBelow || isMountPoint));
}

TargetDevice::TargetDevice(const std::string& path, Access access, const ExpectedDrive& expected)
    : name_(path)
{
    // Nothing is done to a file that is opened with O_PATH (open(2)): a FIFO does not block,
    // a tape does not rewind.
    const Descriptor found(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!found.isOpen()) {
        throw system_failure(path, "open", errno);
    }
    identify(path, found.get());
    open(found.procName(), access);
    measure();
    compare(path, expected);
}

std::uint64_t TargetDevice::currentSizeBytes() const
{
    return measure_bytes(descriptor_.get(), isBlockDevice_);
}

void TargetDevice::identify(const std::string& path, int descriptor)
{
    const struct stat status = checked_status(path, descriptor);
    isBlockDevice_ = S_ISBLK(status.st_mode);
    if (isBlockDevice_) {
        number_ = status.st_rdev;
        const std::string drive = model_and_serial(number_);
        name_ += drive.empty() ? "" : " (" + drive + ")";
    }
}

void TargetDevice::open(const std::string& procName, Access access)
{
    const int exclusive = isBlockDevice_ ? O_EXCL : 0;
    const int flags = O_CLOEXEC | exclusive | (access == Access::Write ? O_RDWR : O_RDONLY);
    const auto deadline = Clock::now() + (isBlockDevice_ ? kDeviceBusyWait : kFileBusyWait);
    descriptor_ = open_exclusively(procName, flags);
    while (!descriptor_.isOpen() && errno == EBUSY) {
        const std::string user = isBlockDevice_ ? find_drive_user(number_) : std::string();
        if (!user.empty() || Clock::now() >= deadline) {
            throw Failure(name_ + ": open: the device is in use" +
                          (user.empty() ? "" : ": " + user));
        }
        std::this_thread::sleep_for(kBusyPoll);
        descriptor_ = open_exclusively(procName, flags);
    }
    if (!descriptor_.isOpen()) {
        throw system_failure(name_, "open", errno);
    }
    // The kernel opens a write-protected drive for writing all the same; every single sector
    // would then be refused, one by one.
    int isReadOnly = 0;
    if (access == Access::Write && isBlockDevice_ &&
        ::ioctl(descriptor_.get(), BLKROGET, &isReadOnly) == 0 && isReadOnly != 0) {
        throw Failure(name_ + ": open: the device is read-only; look for a write-protect switch");
    }
}

void TargetDevice::measure()
{
    if (isBlockDevice_) {
        int bytes = 0;
        if (::ioctl(descriptor_.get(), BLKSSZGET, &bytes) != 0 || bytes <= 0) {
            throw system_failure(name_, "read sector size", errno);
        }
        sectorSizeBytes_ = static_cast<std::uint32_t>(bytes);
    }
    sizeBytes_ = measure_bytes(descriptor_.get(), isBlockDevice_);
    if (sizeBytes_ == 0) {
        throw Failure(name_ + ": the device has no size");
    }
}

// Kernels before 5.15 have no disk sequence numbers.
void TargetDevice::compare(const std::string& path, const ExpectedDrive& expected) const
{
    std::uint64_t sequence = 0;
    const bool isSameDisk = !expected.diskSequence || !isBlockDevice_ ||
                            ::ioctl(descriptor_.get(), BLKGETDISKSEQ, &sequence) != 0 ||
                            sequence == *expected.diskSequence;
    if (!isSameDisk || sizeBytes_ != expected.sizeBytes.value_or(sizeBytes_)) {
        const std::string drive = isBlockDevice_ ? model_and_serial(number_) : std::string();
        throw Failure(path + ": another drive is there now: " + drive +
                      (drive.empty() ? "" : ", ") + std::to_string(sizeBytes_) + " bytes");
    }
}
