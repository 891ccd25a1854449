#pragma once

#include "helpers/common/target_device.h"

#include <cstdint>
#include <string>
#include <vector>

/// How much of what a run has written it reads back: 2400 sectors, a tenth, or everything.
enum class Verification { Spot, Tenth, Full };

/// What a run covers and in which pieces.
struct RunPlan {
    std::string name; ///< For messages only.
    TargetDevice::Access access = TargetDevice::Access::Read;
    std::uint64_t sizeBytes = 0;       ///< Not 0; need not be whole sectors.
    std::uint32_t sectorSizeBytes = 0; ///< Not 0.
    std::uint32_t stepBytes = 0;       ///< Whole sectors, at least one.
    Verification verification = Verification::Tenth;

    /// The trailing part of a sector in a file does not count.
    [[nodiscard]] std::uint64_t sectorCount() const { return sizeBytes / sectorSizeBytes; }
};

/// Consecutive bytes of a drive.
struct ByteRange {
    std::uint64_t offsetBytes = 0;
    std::uint64_t lengthBytes = 0;

    [[nodiscard]] std::uint64_t end() const { return offsetBytes + lengthBytes; }
};

/// Ascending, none overlapping another.
using ByteRanges = std::vector<ByteRange>;

[[nodiscard]] inline std::uint64_t total_bytes(const ByteRanges& ranges)
{
    std::uint64_t bytes = 0;
    for (const ByteRange& range : ranges) {
        bytes += range.lengthBytes;
    }
    return bytes;
}
