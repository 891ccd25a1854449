#pragma once

#include "helpers/common/target_device.h"

#include <cstdint>
#include <string>

/// What a run covers and in which pieces.
struct RunPlan {
    std::string name; ///< For messages only.
    TargetDevice::Access access = TargetDevice::Access::Read;
    std::uint64_t sizeBytes = 0;       ///< Not 0; need not be whole sectors.
    std::uint32_t sectorSizeBytes = 0; ///< Not 0.
    std::uint32_t stepBytes = 0;       ///< Whole sectors, at least one.
    std::uint32_t requestBytes = 0;    ///< Whole steps, at least one: what the drive is asked for.

    /// The trailing part of a sector in a file does not count.
    [[nodiscard]] std::uint64_t sectorCount() const { return sizeBytes / sectorSizeBytes; }
};
