#include "storage/driver.h"

#include "app/base/debug_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;

namespace {

const char* const DBG_MODULE = "Driver";

constexpr mode_t kCreationMode = 0644;

// Logs what failed, and why; the reason is taken before the log can change it.
void log_failure(int line, const QString& what)
{
    const std::string reason = std::generic_category().message(errno);
    dbg_ostream(DBG_MODULE, line) << ": " << what << reason << Qt::endl;
}

// Where a path leads, also when nothing is there; no path when that cannot be told.
fs::path real_path(fs::path path)
{
    constexpr int kMaxLinks = 40; // as the kernel follows (path_resolution(7))
    std::error_code failed;
    for (int links = 0; links < kMaxLinks && fs::is_symlink(path, failed); ++links) {
        path = path.parent_path() / fs::read_symlink(path, failed);
    }
    return fs::weakly_canonical(path, failed);
}

bool may_create(const fs::path& path)
{
    const std::string real = real_path(path).string();
    return !real.empty() && !real.starts_with("/dev/");
}

// See "Opening for writing creates a file" in docs/odd-on-purpose.md.
int open_flags(Driver::Mode mode, const std::string& path)
{
    const int creation = may_create(path) ? O_CREAT : 0;
    switch (mode) {
    case Driver::Write:
        return O_WRONLY | creation;
    case Driver::ReadWrite:
        return O_RDWR | creation;
    default:
        return O_RDONLY;
    }
}

// What cannot be synchronized has no cache (fsync(2), EINVAL).
int flush_and_close(int descriptor)
{
    const int error = ::fsync(descriptor) == 0 || errno == EINVAL ? 0 : errno;
    ::close(descriptor);
    return error;
}

// Calls again when a signal interrupted it before anything was done.
template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// The bytes that a read or write transferred; a failure is logged and counts as 0.
unsigned long long transferred(ssize_t result, unsigned long long offset, unsigned long long length)
{
    if (result >= 0) {
        return static_cast<unsigned long long>(result);
    }
    log_failure(__LINE__, QStringLiteral("%1 %2 -1 ").arg(offset).arg(length));
    return 0;
}

} // namespace

Driver::Driver(const char* device, unsigned long long sectorSize)
    : path_(device), sectorSize_(sectorSize)
{
}

Driver::~Driver()
{
    if (descriptor_ >= 0) {
        close();
    }
}

bool Driver::init(Mode mode)
{
    if (descriptor_ >= 0) {
        close();
    }
    const int flags = open_flags(mode, path_) | O_CLOEXEC;
    descriptor_ = uninterrupted([&] { return ::open64(path_.c_str(), flags, kCreationMode); });
    if (descriptor_ < 0) {
        log_failure(__LINE__, QString::fromLatin1(path_) + QLatin1Char(' '));
        return false;
    }
    return measure();
}

unsigned long long Driver::size() const
{
    return size_;
}

unsigned long long Driver::sectorSize() const
{
    return sectorSize_;
}

unsigned long long Driver::readSectors(unsigned long long lba, unsigned long long count,
                                       void* buffer)
{
    return readStd(lba * sectorSize_, buffer, count * sectorSize_) / sectorSize_;
}

unsigned long long Driver::writeSectors(unsigned long long lba, unsigned long long count,
                                        const void* buffer)
{
    return writeStd(lba * sectorSize_, buffer, count * sectorSize_) / sectorSize_;
}

unsigned long long Driver::readStd(unsigned long long offset, void* buffer,
                                   unsigned long long length)
{
    if (!seek(offset)) {
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(length);
    return transferred(uninterrupted([&] { return ::read(descriptor_, buffer, bytes); }), offset,
                       length);
}

unsigned long long Driver::writeStd(unsigned long long offset, const void* buffer,
                                    unsigned long long length)
{
    if (!seek(offset)) {
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(length);
    return transferred(uninterrupted([&] { return ::write(descriptor_, buffer, bytes); }), offset,
                       length);
}

std::future<int> Driver::flush() const
{
    const int descriptor = ::fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);
    std::packaged_task<int()> task([descriptor, error = errno] {
        return descriptor < 0 ? error : flush_and_close(descriptor);
    });
    std::future<int> result = task.get_future();
    std::thread(std::move(task)).detach();
    return result;
}

bool Driver::close()
{
    if (::close(descriptor_) != 0) {
        log_failure(__LINE__, QString());
        return false;
    }
    descriptor_ = -1;
    return true;
}

bool Driver::measure()
{
    const off64_t end = ::lseek64(descriptor_, 0, SEEK_END);
    if (end < 0) {
        log_failure(__LINE__, QString::fromLatin1(path_) + QLatin1Char(' '));
        close();
        return false;
    }
    size_ = static_cast<unsigned long long>(end);
    return true;
}

bool Driver::seek(unsigned long long offset)
{
    const auto position = static_cast<off64_t>(offset);
    if (::lseek64(descriptor_, position, SEEK_SET) == position && position >= 0) {
        return true;
    }
    log_failure(__LINE__, QStringLiteral("%1 ").arg(offset));
    return false;
}
