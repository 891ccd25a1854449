#pragma once

#include "helpers/driver/run_plan.h"

#include <cstdint>
#include <vector>

// Which places of a drive a writing run looks at. All are drawn anew for each run.

/// `count` ascending sectors of a drive (all of them when it has fewer): the first, the last,
/// and one chosen unpredictably from each of equal parts between them.
[[nodiscard]] std::vector<std::uint64_t> spread_sectors(std::uint64_t sectorCount,
                                                        std::uint64_t count);

/// The sectors that get a mark: one in each of a thousand equal parts, on a drive of fewer than
/// 64,000 sectors one in 64.
[[nodiscard]] std::vector<std::uint64_t> sectors_to_mark(const RunPlan& plan);

/// What is read back, by the plan's verification:
/// - spot: 1400 spread sectors;
/// - tenth: of each of a thousand equal subsections two random samples that do not overlap, each a
///   twentieth of it, and the first and the last sector (NIST SP 800-88 Rev. 1, 4.7.2); a
///   drive of less than 1024 sectors a subsection as a whole;
/// - full: the whole drive.
/// All marked sectors belong to it.
[[nodiscard]] ByteRanges ranges_to_read_back(const RunPlan& plan,
                                             const std::vector<std::uint64_t>& markedSectors);

/// Each of the ascending sectors as a range.
[[nodiscard]] ByteRanges sector_ranges(const std::vector<std::uint64_t>& sectors,
                                       std::uint32_t sectorSizeBytes);
