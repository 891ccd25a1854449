#pragma once

#include "helpers/common/target_device.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

/// One read or write of consecutive bytes of a drive.
struct IoRequest {
    TargetDevice::Access access = TargetDevice::Access::Read;
    std::uint64_t offsetBytes = 0;
    std::size_t lengthBytes = 0;
    char* memory = nullptr; ///< Of that length; a part of the run's IoMemory.
};

/// The drive as a pass sees it: requests on their way to it, and no descriptor.
///
/// Results are the number of bytes, which can be less than asked for as with pwrite(2) and
/// pread(2), or the negated errno value.
class RequestQueue {
public:
    RequestQueue() = default;
    virtual ~RequestQueue() = default;
    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    /// Requests that may be on their way at once.
    static constexpr std::size_t kMaxDepth = 32;

    /// Whether requests can be on their way at once at all.
    [[nodiscard]] virtual bool isAsynchronous() const = 0;

    /// Whether requests were given up for which the kernel may still read or write the memory
    /// that they had; each was or will be done again in the same memory. The queue is not
    /// asynchronous any more then.
    [[nodiscard]] virtual bool hasGivenUp() const = 0;

    /// Puts one request on its way; its memory must stay until it is finished. One that is
    /// `alone` may be done at once.
    virtual void start(const IoRequest& request, bool alone) = 0;

    /// Waits for the one that was started first, and gives its result.
    [[nodiscard]] virtual ssize_t finishOldest() = 0;

    /// Does one request and waits for it, whatever else is on its way.
    [[nodiscard]] virtual ssize_t transfer(const IoRequest& request) = 0;

    /// Brings what was written to the medium. Gives 0, or the errno value when anything
    /// written since the start may not have reached it.
    [[nodiscard]] virtual int flush() = 0;

    /// The size as it is now; 0 when the drive has gone.
    [[nodiscard]] virtual std::uint64_t currentSizeBytes() const = 0;
};

/// Gives the next request, or none at the end. `slot`, below the depth, is not that of any
/// request on its way.
using NextRequest = std::function<std::optional<IoRequest>(std::size_t slot)>;

/// Takes a request's result, in the order of the requests.
using FinishRequest = std::function<void(const IoRequest& request, ssize_t result)>;

/// Does all requests, up to `depth` (at most RequestQueue::kMaxDepth) on their way at once.
void run_requests(RequestQueue& queue, std::size_t depth, const NextRequest& next,
                  const FinishRequest& finish);
