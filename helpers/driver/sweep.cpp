#include "helpers/driver/sweep.h"

#include "helpers/common/failure.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/progress.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

namespace {

// Which of them is fastest depends on what is below: a disk likes many small ones, memory a few
// that stay in the processor's cache, a drive whose kernel side works in the caller's time a plain
// call.
const std::vector<Pace> kPaces{{512U << 10U, 4}, {1U << 20U, 8}, {128U << 10U, 32},
                               {512U << 10U, 2}, {1U << 20U, 1}, {512U << 10U, 1}};

// By plain calls, larger ones would not stay in the processor's cache.
constexpr Pace kPlainPace{512U << 10U, 1};

double seconds_now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const char* verb(TargetDevice::Access access)
{
    return access == TargetDevice::Access::Write ? "write" : "read";
}

// As many whole steps as have room; a step that is larger is done in several requests.
std::uint32_t joined_steps(std::uint32_t stepBytes, std::uint32_t maxBytes)
{
    return stepBytes < maxBytes ? maxBytes - maxBytes % stepBytes : maxBytes;
}

// A drive that was pulled out fails with one of these, or with EIO and no size left.
void throw_if_gone(const RunPlan& plan, const RequestQueue& queue, TargetDevice::Access access,
                   int error)
{
    if (error == ENODEV || error == ENXIO) {
        throw system_failure(plan.name, verb(access), error);
    }
    check_size(plan, queue, access);
}

} // namespace

Sweep::Sweep(const SweepTools& tools, TargetDevice::Access access, ByteRanges ranges,
             Client& client)
    : plan_(tools.plan), memory_(tools.memory), queue_(tools.queue), progress_(tools.progress),
      access_(access), ranges_(std::move(ranges)), client_(client),
      tuner_(kPaces, total_bytes(ranges_), seconds_now)
{
}

void Sweep::run()
{
    while (range_ < ranges_.size()) {
        const Pace pace = choosePace();
        const bool hadGivenUp = queue_.hasGivenUp();
        const NextRequest next = [&](std::size_t slot) -> std::optional<IoRequest> {
            const bool isOver = tuner_.isDue() || queue_.hasGivenUp() != hadGivenUp;
            return isOver ? std::nullopt : nextRequest(pace, slot);
        };
        run_requests(queue_, pace.depth, next, [this](const IoRequest& request, ssize_t moved) {
            finishRequest(request, moved);
        });
        if (queue_.hasGivenUp()) {
            memory_.giveUpSlots();
        }
    }
}

Pace Sweep::choosePace()
{
    const std::uint64_t largest =
        std::ranges::max_element(ranges_, {}, &ByteRange::lengthBytes)->lengthBytes;
    if (largest <= plan_.sectorSizeBytes) {
        return {plan_.sectorSizeBytes, queue_.isAsynchronous() ? RequestQueue::kMaxDepth : 1};
    }
    Pace pace = queue_.isAsynchronous() ? tuner_.choose() : kPlainPace;
    pace.requestBytes = joined_steps(plan_.stepBytes, pace.requestBytes);
    pace.depth = std::min(pace.depth, memory_.slotCount(pace.requestBytes));
    return pace;
}

std::optional<IoRequest> Sweep::nextRequest(const Pace& pace, std::size_t slot)
{
    if (range_ == ranges_.size()) {
        return std::nullopt;
    }
    // Each time: writing would silently make a file that was cut short as long as before.
    check_size(plan_, queue_, access_);
    nextOffset_ = std::max(nextOffset_, ranges_[range_].offsetBytes);
    const std::uint64_t offset = std::exchange(nextOffset_, requestEnd(pace.requestBytes));
    if (nextOffset_ == ranges_[range_].end()) {
        ++range_;
    }
    IoRequest request{access_, offset, static_cast<std::size_t>(nextOffset_ - offset), nullptr};
    request.memory = client_.memoryFor(request, memory_.slot(slot, pace.requestBytes));
    return request;
}

// Requests end at multiples of their size, so that they stay aligned to the physical sectors.
// The trailing part of a sector is one of its own: it cannot be direct I/O.
std::uint64_t Sweep::requestEnd(std::uint32_t requestBytes) const
{
    const std::uint64_t wholeSectors = plan_.sectorCount() * plan_.sectorSizeBytes;
    if (nextOffset_ == wholeSectors) {
        return plan_.sizeBytes;
    }
    return std::min({nextOffset_ - nextOffset_ % requestBytes + requestBytes, wholeSectors,
                     ranges_[range_].end()});
}

void Sweep::finishRequest(const IoRequest& request, ssize_t moved)
{
    if (moved < 0) {
        throw_if_gone(plan_, queue_, access_, static_cast<int>(-moved));
    }
    if (moved == static_cast<ssize_t>(request.lengthBytes)) {
        client_.moved(request);
    } else {
        redoBySteps(request);
    }
    client_.finished(request);
    tuner_.finished(request.lengthBytes);
    progress_.add(request.lengthBytes);
}

void Sweep::redoBySteps(const IoRequest& failed)
{
    for (std::size_t done = 0; done < failed.lengthBytes; done += plan_.stepBytes) {
        const std::size_t left = failed.lengthBytes - done;
        const IoRequest step{access_, failed.offsetBytes + done,
                             std::min<std::size_t>(plan_.stepBytes, left), failed.memory + done};
        if (transferWhole(step) == 0) {
            client_.moved(step);
        } else {
            redoBySectors(step);
        }
    }
}

void Sweep::redoBySectors(const IoRequest& failed)
{
    for (std::size_t done = 0; done < failed.lengthBytes; done += plan_.sectorSizeBytes) {
        IoRequest sector = failed;
        sector.offsetBytes += done;
        sector.memory += done;
        sector.lengthBytes =
            std::min<std::size_t>(plan_.sectorSizeBytes, failed.lengthBytes - done);
        int error = transferWhole(sector);
        if (error != 0) {
            // What failed before may have been other sectors: each gets a second try of its own.
            error = transferWhole(sector);
        }
        if (error != 0) {
            client_.failed(sector, error);
        } else {
            client_.moved(sector);
        }
    }
}

int Sweep::transferWhole(IoRequest request)
{
    while (request.lengthBytes > 0) {
        const ssize_t moved = queue_.transfer(request);
        if (moved <= 0) {
            const int error = moved < 0 ? static_cast<int>(-moved) : EIO;
            throw_if_gone(plan_, queue_, access_, error);
            return error;
        }
        request.offsetBytes += static_cast<std::uint64_t>(moved);
        request.memory += moved;
        request.lengthBytes -= static_cast<std::size_t>(moved);
    }
    return 0;
}

void check_size(const RunPlan& plan, const RequestQueue& queue, TargetDevice::Access access)
{
    const std::uint64_t size = queue.currentSizeBytes();
    if (size == plan.sizeBytes) {
        return;
    }
    const std::string start = plan.name + ": " + verb(access) + ": ";
    if (size == 0) {
        throw Failure(start + "the device has gone");
    }
    throw Failure(start + "the size changed from " + std::to_string(plan.sizeBytes) + " to " +
                  std::to_string(size) + " bytes");
}
