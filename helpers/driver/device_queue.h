#pragma once

#include "helpers/driver/io_ring.h"
#include "helpers/driver/request_queue.h"

#include <deque>
#include <memory>
#include <optional>
#include <span>

/// Writes to and reads from an open device.
///
/// Direct I/O (open(2), O_DIRECT), through a ring where that gains something, as long as
/// the kernel, the file system and the alignment allow it; from the first refusal on
/// buffered I/O, flushed and dropped from the page cache at regular intervals, so that a
/// large drive does not push everything else out of memory.
class DeviceQueue : public RequestQueue {
public:
    /// All requests' memory must lie in `memory`. It and `device` must outlive this. `access` is
    /// that of the requests that are started.
    DeviceQueue(const TargetDevice& device, TargetDevice::Access access, std::span<char> memory);

    /// Whether the kernel can start a request without waiting; if not, a thread has to do it.
    [[nodiscard]] bool isAsynchronous() const { return isAsynchronous_; }

    void start(const IoRequest& request) override;
    [[nodiscard]] ssize_t finishOldest() override;
    [[nodiscard]] ssize_t transfer(const IoRequest& request) override;
    [[nodiscard]] int flush() override;
    [[nodiscard]] std::uint64_t currentSizeBytes() const override;

private:
    /// A request without a result is in the ring.
    struct Started {
        IoRequest request;
        std::optional<ssize_t> result;
    };

    [[nodiscard]] bool startInRing(const IoRequest& request);
    [[nodiscard]] ssize_t transferOnce(const IoRequest& request);
    [[nodiscard]] bool setDirect(bool direct) const;
    void useBuffered();
    void trimPageCache(std::size_t movedBytes);
    void dropPageCache() const;

    const TargetDevice& device_;
    bool isDirect_;
    std::unique_ptr<IoRing> ring_;
    bool isAsynchronous_;
    bool isRingInUse_;
    std::deque<Started> started_;
    std::size_t cachedBytes_ = 0;
    bool isWritten_ = false;
    int flushError_ = 0;
};
