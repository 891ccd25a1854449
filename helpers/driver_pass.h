#pragma once

#include "helpers/target_device.h"

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// The drive as a pass sees it: offsets and lengths, no memory and no descriptor.
class PassTarget {
public:
    PassTarget() = default;
    virtual ~PassTarget() = default;
    PassTarget(const PassTarget&) = delete;
    PassTarget& operator=(const PassTarget&) = delete;

    /// Writes or reads once. Gives the number of bytes, which can be less than asked for as
    /// with pwrite(2) and pread(2), or the negated errno value.
    [[nodiscard]] virtual ssize_t transfer(std::uint64_t offsetBytes, std::size_t lengthBytes) = 0;

    /// Brings what was written to the medium. Gives 0, or the errno value when anything
    /// written since the start may not have reached it.
    [[nodiscard]] virtual int flush() = 0;

    /// The size as it is now; 0 when the drive has gone.
    [[nodiscard]] virtual std::uint64_t currentSizeBytes() const = 0;
};

/// What a pass covers and in which steps.
struct PassPlan {
    std::string path; ///< For messages only.
    TargetDevice::Access access = TargetDevice::Access::Read;
    std::uint64_t sizeBytes = 0;       ///< Not 0; need not be whole sectors.
    std::uint32_t sectorSizeBytes = 0; ///< Not 0.
    std::uint32_t stepBytes = 0;       ///< Whole sectors, at least one.
};

/// Goes over a drive once, from the first byte to the last, step by step.
///
/// A step that fails is done again sector by sector; the sectors that fail even so are
/// counted and passed over, so that a bad one does not save the rest from being erased.
class Pass {
public:
    /// Called with 0 to 100, only when the value changes; 100 only after the flush and only
    /// when nothing failed.
    using ShowPercent = std::function<void(unsigned percent)>;

    /// `target` must outlive the pass.
    Pass(PassPlan plan, PassTarget& target, ShowPercent showPercent);

    /// Throws Failure unless all of the drive was transferred and flushed: at once when the
    /// drive has gone or its size changed, at the end when sectors or the flush failed.
    void run();

private:
    [[nodiscard]] std::size_t stepLength(std::uint64_t offset) const;
    void runStep(std::uint64_t offset, std::size_t length);
    void runSector(std::uint64_t offset, std::size_t length);
    void finish();

    void passOver(std::uint64_t offset, int error);
    void throwIfGone(int error) const;
    void checkSize() const;
    void showProgress(std::uint64_t doneBytes);

    PassPlan plan_;
    PassTarget& target_;
    ShowPercent showPercent_;
    unsigned shownPercent_ = ~0U; // none yet
    std::uint64_t badSectors_ = 0;
    std::uint64_t firstBadSector_ = 0;
    int firstError_ = 0;
};
