#include "helpers/driver/marks.h"

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>

namespace {

// SplitMix64: as good as needed here, and without the costly start of the library's generators.
class RandomWords {
public:
    explicit RandomWords(std::uint64_t seed) : state_(seed) {}

    std::uint64_t next()
    {
        std::uint64_t word = state_ += 0x9e3779b97f4a7c15U;
        word = (word ^ (word >> 30U)) * 0xbf58476d1ce4e5b9U;
        word = (word ^ (word >> 27U)) * 0x94d049bb133111ebU;
        return word ^ (word >> 31U);
    }

private:
    std::uint64_t state_;
};

} // namespace

Marks::Marks(std::vector<std::uint64_t> ascendingSectors, std::size_t sectorSizeBytes)
    : sectors_(std::move(ascendingSectors)), sectorSizeBytes_(sectorSizeBytes)
{
    std::random_device random;
    runKey_ = std::uniform_int_distribution<std::uint64_t>()(random);
}

bool Marks::contains(std::uint64_t sector) const
{
    return std::ranges::binary_search(sectors_, sector);
}

std::span<const std::uint64_t> Marks::among(std::uint64_t firstSector, std::uint64_t count) const
{
    const auto first = std::ranges::lower_bound(sectors_, firstSector);
    return {first, std::ranges::lower_bound(first, sectors_.end(), firstSector + count)};
}

void Marks::fill(std::uint64_t sector, char* memory) const
{
    RandomWords ofSector(RandomWords(runKey_).next() ^ sector);
    RandomWords words(ofSector.next());
    for (std::size_t done = 0; done < sectorSizeBytes_;) {
        const std::uint64_t word = words.next();
        const std::size_t length = std::min(sizeof(word), sectorSizeBytes_ - done);
        std::memcpy(memory + done, &word, length);
        done += length;
    }
}
