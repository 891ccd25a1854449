#pragma once

#include "helpers/driver/io_ring.h"
#include "helpers/driver/request_queue.h"

#include "posix/descriptor.h"

#include <deque>
#include <memory>
#include <optional>
#include <span>

/// Writes to and reads from an open device.
///
/// Direct I/O (open(2), O_DIRECT), through a ring, as long as the kernel and the file system allow
/// it. A request that direct I/O is refused for is done through the page cache, that one alone.
/// A ring that stands still is given up, and plain calls take its place. Where direct I/O is
/// refused from the start, everything goes through the page cache, flushed and dropped from it at
/// regular intervals, so that a large drive does not push everything else out of memory.
class DeviceQueue : public RequestQueue {
public:
    /// All requests' memory must lie in `memory` as long as nothing was given up. It and `device`
    /// must outlive this. `access` is that of the run.
    DeviceQueue(const TargetDevice& device, TargetDevice::Access access, std::span<char> memory);

    [[nodiscard]] bool isAsynchronous() const override { return ring_ != nullptr; }
    [[nodiscard]] bool hasGivenUp() const override { return hasGivenUp_; }
    void start(const IoRequest& request, bool alone) override;
    [[nodiscard]] ssize_t finishOldest() override;
    [[nodiscard]] ssize_t transfer(const IoRequest& request) override;
    [[nodiscard]] int flush() override;
    [[nodiscard]] std::uint64_t currentSizeBytes() const override;

private:
    /// A request without a result is in the ring, or was in one that was given up.
    struct Started {
        IoRequest request;
        std::optional<ssize_t> result;
    };

    [[nodiscard]] bool startInRing(const IoRequest& request);
    void finishInRing(Started& started);
    void giveUpRing();
    [[nodiscard]] ssize_t transferBuffered(const IoRequest& request);
    [[nodiscard]] int writeBack(const IoRequest& request) const;
    [[nodiscard]] ssize_t transferOnce(int descriptor, const IoRequest& request);
    [[nodiscard]] bool setDirect() const;
    void trimPageCache(std::size_t movedBytes);

    const TargetDevice& device_;
    TargetDevice::Access access_;
    bool isDirect_;
    std::unique_ptr<IoRing> ring_;
    bool hasGivenUp_ = false;
    std::deque<Started> started_;
    Descriptor buffered_; ///< The same device through the page cache; opened when it is needed.
    std::size_t cachedBytes_ = 0;
    bool isWritten_ = false;
    int flushError_ = 0;
};
