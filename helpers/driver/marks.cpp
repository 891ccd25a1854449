#include "helpers/driver/marks.h"

#include <algorithm>
#include <utility>

std::vector<std::uint64_t> spread_sectors(std::uint64_t sectorCount, std::uint64_t count)
{
    count = std::min(count, sectorCount);
    std::random_device random;
    std::vector<std::uint64_t> sectors;
    std::uint64_t start = 0;
    for (std::uint64_t part = 0; part < count; ++part) {
        // The first parts are one sector longer when it does not come out even.
        const std::uint64_t length = sectorCount / count + (part < sectorCount % count ? 1 : 0);
        sectors.push_back(std::uniform_int_distribution(start, start + length - 1)(random));
        start += length;
    }
    if (!sectors.empty()) {
        sectors.back() = sectorCount - 1;
        sectors.front() = 0;
    }
    return sectors;
}

Marks::Marks(std::vector<std::uint64_t> ascendingSectors, std::size_t sectorSizeBytes)
    : sectors_(std::move(ascendingSectors)), sectorSizeBytes_(sectorSizeBytes)
{
}

bool Marks::contains(std::uint64_t sector) const
{
    return std::ranges::binary_search(sectors_, sector);
}

std::optional<std::uint64_t> Marks::firstFrom(std::uint64_t sector) const
{
    const auto found = std::ranges::lower_bound(sectors_, sector);
    return found == sectors_.end() ? std::nullopt : std::optional(*found);
}

std::vector<char> Marks::content(std::uint64_t sector) const
{
    std::seed_seq seed{runKey_, static_cast<unsigned>(sector),
                       static_cast<unsigned>(sector >> 32U)};
    std::mt19937 bytes(seed);
    std::vector<char> content(sectorSizeBytes_);
    std::ranges::generate(content, [&] { return static_cast<char>(bytes()); });
    return content;
}
