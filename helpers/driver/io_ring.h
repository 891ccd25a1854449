#pragma once

#include "helpers/driver/request_queue.h"

#include <liburing.h>

#include <array>
#include <chrono>
#include <memory>
#include <optional>
#include <span>

/// Requests to one file through io_uring (io_uring(7)), with the file and the memory
/// registered, so that the kernel looks both up only once.
///
/// Results are given in the order of the starts, in whichever order the drive finishes.
class IoRing {
public:
    /// None when the kernel or a seccomp filter refuses. Both must outlive the ring.
    [[nodiscard]] static std::unique_ptr<IoRing> open(int descriptor, std::span<char> memory);

    ~IoRing();
    IoRing(const IoRing&) = delete;
    IoRing& operator=(const IoRing&) = delete;

    /// At most RequestQueue::kMaxDepth may be on their way. False when the kernel did not take it.
    [[nodiscard]] bool start(const IoRequest& request);

    /// Waits for the oldest; as RequestQueue::finishOldest(). None when nothing at all was finished
    /// for kWaitLimit: then the ring is of no use any more, and those that are on their way may
    /// still be done as long as the ring exists, and for a while after.
    [[nodiscard]] std::optional<ssize_t> finishOldest();

    /// Longer than a drive takes for a sector that it can hardly read, and than most of the
    /// kernel's own limits for one command (30 s).
    static constexpr std::chrono::seconds kWaitLimit{60};

private:
    IoRing() = default;
    void collect(const io_uring_cqe& completion);

    io_uring ring_ = {};
    std::array<std::optional<ssize_t>, RequestQueue::kMaxDepth> results_;
    std::size_t started_ = 0;
    std::size_t finished_ = 0;
};
