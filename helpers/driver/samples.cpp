#include "helpers/driver/samples.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace {

constexpr std::uint64_t kSubsections = 1000;
constexpr std::uint64_t kMinSubsectionSectors = 1024;
constexpr std::uint64_t kSampleShare = 20; // the part of a subsection that a sample is
constexpr std::uint64_t kMarks = 1000;
constexpr std::uint64_t kMinSectorsPerMark = 64;

// Of 1400 sectors, all but two at random, none lies in a lost hundredth of the drive once in
// 1.27 million runs: 0.99^1398 = 7.9e-7.
constexpr std::uint64_t kSpots = 1400;

struct SectorRange {
    std::uint64_t start = 0;
    std::uint64_t count = 0;
};

// The first of `parts` are one sector longer when it does not come out even.
SectorRange part_of(std::uint64_t sectorCount, std::uint64_t parts, std::uint64_t part)
{
    const std::uint64_t count = sectorCount / parts;
    const std::uint64_t longer = sectorCount % parts;
    return {part * count + std::min(part, longer), count + (part < longer ? 1 : 0)};
}

// Both samples anywhere in the subsection, the second behind the first: drawn as if they had no
// length, in what is left of the subsection without them.
void add_samples(const SectorRange& subsection, std::random_device& random,
                 std::vector<SectorRange>& samples)
{
    const std::uint64_t length = (subsection.count + kSampleShare - 1) / kSampleShare;
    std::uniform_int_distribution<std::uint64_t> draw(0, subsection.count - 2 * length);
    const auto [first, second] = std::minmax({draw(random), draw(random)});
    samples.push_back({subsection.start + first, length});
    samples.push_back({subsection.start + second + length, length});
}

std::vector<SectorRange> samples_of_a_tenth(std::uint64_t sectorCount)
{
    std::random_device random;
    std::vector<SectorRange> samples{{0, 1}, {sectorCount - 1, 1}};
    for (std::uint64_t part = 0; part < kSubsections; ++part) {
        add_samples(part_of(sectorCount, kSubsections, part), random, samples);
    }
    return samples;
}

// In any order and overlapping.
ByteRanges merged(ByteRanges ranges)
{
    std::ranges::sort(ranges, {}, &ByteRange::offsetBytes);
    ByteRanges result;
    for (const ByteRange& range : ranges) {
        if (result.empty() || range.offsetBytes > result.back().end()) {
            result.push_back(range);
        } else {
            ByteRange& last = result.back();
            last.lengthBytes = std::max(last.end(), range.end()) - last.offsetBytes;
        }
    }
    return result;
}

} // namespace

std::vector<std::uint64_t> spread_sectors(std::uint64_t sectorCount, std::uint64_t count)
{
    count = std::min(count, sectorCount);
    std::random_device random;
    std::vector<std::uint64_t> sectors;
    for (std::uint64_t part = 0; part < count; ++part) {
        const auto [start, length] = part_of(sectorCount, count, part);
        sectors.push_back(std::uniform_int_distribution(start, start + length - 1)(random));
    }
    if (!sectors.empty()) {
        sectors.back() = sectorCount - 1;
        sectors.front() = 0;
    }
    return sectors;
}

std::vector<std::uint64_t> sectors_to_mark(const RunPlan& plan)
{
    const std::uint64_t count = std::min(kMarks, plan.sectorCount() / kMinSectorsPerMark + 1);
    return spread_sectors(plan.sectorCount(), count);
}

ByteRanges ranges_to_read_back(const RunPlan& plan, const std::vector<std::uint64_t>& markedSectors)
{
    const std::uint32_t bytes = plan.sectorSizeBytes;
    ByteRanges ranges = sector_ranges(markedSectors, bytes);
    if (plan.verification == Verification::Spot) {
        std::ranges::copy(sector_ranges(spread_sectors(plan.sectorCount(), kSpots), bytes),
                          std::back_inserter(ranges));
    } else if (plan.verification == Verification::Full ||
               plan.sectorCount() < kSubsections * kMinSubsectionSectors) {
        ranges = {{0, plan.sizeBytes}};
    } else {
        for (const auto& [start, count] : samples_of_a_tenth(plan.sectorCount())) {
            ranges.push_back({start * bytes, count * bytes});
        }
    }
    return merged(std::move(ranges));
}

ByteRanges sector_ranges(const std::vector<std::uint64_t>& sectors, std::uint32_t sectorSizeBytes)
{
    ByteRanges ranges;
    for (const std::uint64_t sector : sectors) {
        ranges.push_back({sector * sectorSizeBytes, sectorSizeBytes});
    }
    return ranges;
}
