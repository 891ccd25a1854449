#pragma once

#include "helpers/driver/marks.h"
#include "helpers/driver/request_queue.h"
#include "helpers/driver/run_plan.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

class IoMemory;

/// Goes over a drive once, from the first byte to the last, and proves afterwards that what
/// was written is there.
///
/// A request that fails is done again step by step, and a step that fails sector by sector;
/// the sectors that fail even so are counted and passed over, so that a bad one does not
/// save the rest from being erased.
class DrivePass {
public:
    /// Called with 0 to 100, only when the value changes; 100 only at the end of run().
    using ShowPercent = std::function<void(unsigned percent)>;

    /// The memory holds the pattern when the plan is to write. All references must outlive
    /// the pass.
    DrivePass(const RunPlan& plan, Marks marks, const IoMemory& memory, RequestQueue& queue,
              ShowPercent showPercent);

    /// Throws Failure unless all of the drive was read, or written, flushed and found there:
    /// at once when the drive has gone or its size changed, else at the end.
    void run();

private:
    [[nodiscard]] std::optional<IoRequest> nextRequest(std::size_t slot);
    [[nodiscard]] std::uint64_t requestEnd(std::uint64_t offset) const;
    void placeMarks();
    void overwriteMarks();
    void finishWriting();
    [[nodiscard]] std::vector<std::uint64_t> sampleSectors() const;

    void finishRequest(const IoRequest& request, ssize_t moved);
    void redoBySteps(const IoRequest& failed);
    void redoBySectors(const IoRequest& failed);
    [[nodiscard]] bool isMoved(const IoRequest& sector);
    [[nodiscard]] int transferWhole(IoRequest request);

    void throwIfAnyBad() const;
    void passOver(std::uint64_t offset, int error);
    void throwIfGone(int error) const;
    void checkSize() const;
    void showProgress(std::uint64_t doneBytes);

    const RunPlan& plan_;
    Marks marks_;
    const IoMemory& memory_;
    RequestQueue& queue_;
    ShowPercent showPercent_;
    unsigned shownPercent_ = ~0U; // none yet
    std::uint64_t nextOffset_ = 0;
    std::vector<std::uint64_t> placedMarks_;
    std::uint64_t badSectors_ = 0;
    std::uint64_t firstBadSector_ = 0;
    int firstError_ = 0;
};
