#include "helpers/driver_transfer.h"

#include "erase/pattern.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

// Direct I/O wants memory aligned to the logical block size at most; a page also suits the
// kernel's own splitting into pages.
constexpr std::size_t kMinAlignment = 4096;

constexpr std::size_t kMaxCachedBytes = 8U << 20U;

char* allocate_aligned(std::size_t alignment, std::size_t bytes)
{
    void* memory = nullptr;
    if (::posix_memalign(&memory, alignment, bytes) != 0) {
        throw std::bad_alloc();
    }
    return static_cast<char*>(memory);
}

} // namespace

DeviceTransfer::DeviceTransfer(const TargetDevice& device, const PassPlan& plan,
                               const std::string& pattern)
    : device_(device), isWriting_(plan.access == TargetDevice::Access::Write),
      isDirect_(setDirect(true)),
      buffer_(allocate_aligned(std::max<std::size_t>(kMinAlignment, plan.sectorSizeBytes),
                               plan.stepBytes),
              &std::free)
{
    if (isWriting_) {
        pattern_fill_sectors(buffer_.get(), plan.sectorSizeBytes, pattern.data(),
                             static_cast<unsigned int>(pattern.size()),
                             plan.stepBytes / plan.sectorSizeBytes);
    }
}

ssize_t DeviceTransfer::transfer(std::uint64_t offsetBytes, std::size_t lengthBytes)
{
    ssize_t moved = transferOnce(offsetBytes, lengthBytes);
    if (moved == -EINVAL && isDirect_) {
        useBuffered();
        moved = transferOnce(offsetBytes, lengthBytes);
    }
    if (!isDirect_ && moved > 0) {
        trimPageCache(static_cast<std::size_t>(moved));
    }
    return moved;
}

int DeviceTransfer::flush()
{
    if (isWriting_ && ::fsync(device_.descriptor()) != 0) {
        flushError_ = errno;
    }
    return flushError_;
}

std::uint64_t DeviceTransfer::currentSizeBytes() const
{
    return device_.currentSizeBytes();
}

ssize_t DeviceTransfer::transferOnce(std::uint64_t offset, std::size_t length)
{
    // Every sector of the buffer is alike: only the place within a sector counts.
    char* const memory = buffer_.get() + offset % device_.sectorSizeBytes();
    const auto position = static_cast<off_t>(offset);
    ssize_t moved = 0;
    do {
        moved = isWriting_ ? ::pwrite(device_.descriptor(), memory, length, position)
                           : ::pread(device_.descriptor(), memory, length, position);
    } while (moved < 0 && errno == EINTR);
    return moved < 0 ? -errno : moved;
}

bool DeviceTransfer::setDirect(bool direct) const
{
    const int flags = ::fcntl(device_.descriptor(), F_GETFL);
    const int wanted = direct ? flags | O_DIRECT : flags & ~O_DIRECT;
    return flags >= 0 && ::fcntl(device_.descriptor(), F_SETFL, wanted) == 0;
}

void DeviceTransfer::useBuffered()
{
    isDirect_ = false;
    // Should it stay direct after all, the next transfer fails and is counted as such.
    static_cast<void>(setDirect(false));
}

void DeviceTransfer::trimPageCache(std::size_t movedBytes)
{
    cachedBytes_ += movedBytes;
    if (cachedBytes_ < kMaxCachedBytes) {
        return;
    }
    cachedBytes_ = 0;
    // The kernel reports a failed write-back once (fsync(2)); flush() reports it for good.
    if (isWriting_ && ::fdatasync(device_.descriptor()) != 0) {
        flushError_ = errno;
    }
    // Only advice: a refusal costs memory of the page cache, nothing else.
    static_cast<void>(::posix_fadvise(device_.descriptor(), 0, 0, POSIX_FADV_DONTNEED));
}
