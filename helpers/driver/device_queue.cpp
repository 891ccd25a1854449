#include "helpers/driver/device_queue.h"

#include "helpers/driver/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

constexpr std::size_t kMaxCachedBytes = 8U << 20U;

// The device's alignment, or a file system that cannot do direct I/O on this part.
bool is_refusal(ssize_t result)
{
    return result == -EINVAL || result == -EOPNOTSUPP;
}

void drop_page_cache(int descriptor)
{
    // Only advice: a refusal costs memory of the page cache, nothing else.
    static_cast<void>(::posix_fadvise(descriptor, 0, 0, POSIX_FADV_DONTNEED));
}

} // namespace

DeviceQueue::DeviceQueue(const TargetDevice& device, TargetDevice::Access access,
                         std::span<char> memory)
    : device_(device), access_(access), isDirect_(setDirect()),
      ring_(isDirect_ ? IoRing::open(device.descriptor(), memory) : nullptr)
{
}

void DeviceQueue::start(const IoRequest& request, bool alone)
{
    if (!alone && startInRing(request)) {
        started_.push_back({request, std::nullopt});
    } else {
        started_.push_back({request, transfer(request)});
    }
}

ssize_t DeviceQueue::finishOldest()
{
    finishInRing(started_.front());
    const Started oldest = started_.front();
    started_.pop_front();
    return !oldest.result || is_refusal(*oldest.result) ? transfer(oldest.request) : *oldest.result;
}

ssize_t DeviceQueue::transfer(const IoRequest& request)
{
    const ssize_t moved = transferOnce(device_.descriptor(), request);
    if (is_refusal(moved) && isDirect_) {
        return transferBuffered(request);
    }
    if (!isDirect_ && moved > 0) {
        trimPageCache(static_cast<std::size_t>(moved));
    }
    return moved;
}

int DeviceQueue::flush()
{
    if (isWritten_ && ::fsync(device_.descriptor()) != 0) {
        // The kernel reports a failed write-back once (fsync(2)); this reports it for good.
        flushError_ = errno;
    }
    if (!isDirect_) {
        drop_page_cache(device_.descriptor());
    }
    return flushError_;
}

std::uint64_t DeviceQueue::currentSizeBytes() const
{
    return device_.currentSizeBytes();
}

bool DeviceQueue::startInRing(const IoRequest& request)
{
    if (!ring_) {
        return false;
    }
    isWritten_ = isWritten_ || request.access == TargetDevice::Access::Write;
    const bool isTaken = ring_->start(request);
    if (!isTaken) {
        // It still stands in the ring's queue, so the ring is never used again.
        giveUpRing();
    }
    return isTaken;
}

void DeviceQueue::finishInRing(Started& started)
{
    if (!started.result && ring_) {
        started.result = ring_->finishOldest();
        if (!started.result) {
            giveUpRing();
        }
    }
}

// Closing it also ends the kernel's thread that asks a file system the same again and again,
// which happens when one answers EOPNOTSUPP to a loop device. What the drive itself is at goes on.
void DeviceQueue::giveUpRing()
{
    write_note(device_.name() + ": io_uring stands still; going on with plain calls");
    hasGivenUp_ = true;
    ring_.reset();
}

// What is on its way is waited for: the page cache works in whole pages, and would write a sector
// beside this request's as it was before.
ssize_t DeviceQueue::transferBuffered(const IoRequest& request)
{
    for (Started& started : started_) {
        finishInRing(started);
    }
    const bool isWrite = request.access == TargetDevice::Access::Write;
    if (!buffered_.isOpen()) {
        const std::string name = "/proc/self/fd/" + std::to_string(device_.descriptor());
        const int access = access_ == TargetDevice::Access::Write ? O_RDWR : O_RDONLY;
        buffered_ = Descriptor(::open(name.c_str(), access | O_CLOEXEC));
    }
    if (!buffered_.isOpen()) {
        return -errno;
    }
    drop_page_cache(buffered_.get());
    const ssize_t moved = transferOnce(buffered_.get(), request);
    const int error = isWrite && moved > 0 ? writeBack(request) : 0;
    drop_page_cache(buffered_.get());
    return error != 0 ? -error : moved;
}

// Not fsync(2), whose failure could also be that of the drive's cache. A failure is told to every
// descriptor once; the main one takes note of it here, where the request is known, and not at the
// flush.
int DeviceQueue::writeBack(const IoRequest& request) const
{
    constexpr unsigned kWriteAndWait =
        SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    const auto offset = static_cast<off64_t>(request.offsetBytes);
    const auto length = static_cast<off64_t>(request.lengthBytes);
    if (::sync_file_range(buffered_.get(), offset, length, kWriteAndWait) == 0) {
        return 0;
    }
    const int error = errno;
    static_cast<void>(::sync_file_range(device_.descriptor(), offset, length, kWriteAndWait));
    return error;
}

ssize_t DeviceQueue::transferOnce(int descriptor, const IoRequest& request)
{
    const bool isWrite = request.access == TargetDevice::Access::Write;
    isWritten_ = isWritten_ || isWrite;
    const auto position = static_cast<off_t>(request.offsetBytes);
    ssize_t moved = 0;
    do {
        moved = isWrite ? ::pwrite(descriptor, request.memory, request.lengthBytes, position)
                        : ::pread(descriptor, request.memory, request.lengthBytes, position);
    } while (moved < 0 && errno == EINTR);
    return moved < 0 ? -errno : moved;
}

bool DeviceQueue::setDirect() const
{
    const int flags = ::fcntl(device_.descriptor(), F_GETFL);
    return flags >= 0 && ::fcntl(device_.descriptor(), F_SETFL, flags | O_DIRECT) == 0;
}

void DeviceQueue::trimPageCache(std::size_t movedBytes)
{
    cachedBytes_ += movedBytes;
    if (cachedBytes_ >= kMaxCachedBytes) {
        cachedBytes_ = 0;
        static_cast<void>(flush()); // an error is kept
    }
}
