#pragma once

#include "helpers/driver/request_queue.h"
#include "helpers/driver/run_plan.h"
#include "helpers/driver/tuner.h"

#include <cstdint>
#include <optional>

class IoMemory;
class Progress;

/// What a sweep works with; all of it must outlive the sweep.
struct SweepTools {
    const RunPlan& plan;
    IoMemory& memory;
    RequestQueue& queue;
    Progress& progress; ///< Gets every byte, also of what could not be moved.
};

/// Reads or writes ranges of a drive in ascending order, many requests on their way at once.
///
/// A request that fails is done again step by step, and a step that fails sector by sector;
/// the sectors that fail twice even so are passed over, so that a bad one does not save the rest.
class Sweep {
public:
    /// Where the bytes come from or go to, and what becomes of them.
    class Client {
    public:
        Client() = default;
        virtual ~Client() = default;
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        /// The memory of the request, whose own is null yet; its slot's or shared by several.
        /// For writing it is full.
        [[nodiscard]] virtual char* memoryFor(const IoRequest& request, char* slot) = 0;

        /// All of these bytes were moved: a whole request, or a step or sector of one that failed.
        virtual void moved(const IoRequest& part) { static_cast<void>(part); }

        /// A sector, or the trailing part of one, that failed again and again.
        virtual void failed(const IoRequest& sector, int error) = 0;

        /// Nothing more will be done for the request; its memory is free now.
        virtual void finished(const IoRequest& request) { static_cast<void>(request); }
    };

    Sweep(const SweepTools& tools, TargetDevice::Access access, ByteRanges ranges, Client& client);

    /// Throws Failure at once when the drive has gone or its size changed.
    void run();

private:
    [[nodiscard]] Pace choosePace();
    [[nodiscard]] std::optional<IoRequest> nextRequest(const Pace& pace, std::size_t slot);
    [[nodiscard]] std::uint64_t requestEnd(std::uint32_t requestBytes) const;
    void finishRequest(const IoRequest& request, ssize_t moved);
    void redoBySteps(const IoRequest& failed);
    void redoBySectors(const IoRequest& failed);
    [[nodiscard]] int transferWhole(IoRequest request);

    const RunPlan& plan_;
    IoMemory& memory_;
    RequestQueue& queue_;
    Progress& progress_;
    const TargetDevice::Access access_;
    const ByteRanges ranges_;
    Client& client_;
    Tuner tuner_;
    std::size_t range_ = 0;        ///< The one that the next request is in,
    std::uint64_t nextOffset_ = 0; ///< which begins here.
};

/// Throws Failure when the drive has gone or is of another size than the plan's.
void check_size(const RunPlan& plan, const RequestQueue& queue, TargetDevice::Access access);
