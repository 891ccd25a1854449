#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

/// `count` ascending sectors of a drive (all of them when it has fewer): the first, the last,
/// and one chosen unpredictably from each of equal parts between them.
[[nodiscard]] std::vector<std::uint64_t> spread_sectors(std::uint64_t sectorCount,
                                                        std::uint64_t count);

/// Sectors that a writing run first fills with a content that no other sector has, and only
/// at its end with the pattern. A drive whose sectors share their memory with others, such
/// as a counterfeit one that starts again at its beginning when it is full, overwrites them
/// in between: that shows, where the pattern, alike in all sectors, could not show it.
class Marks {
public:
    Marks() = default; // none
    Marks(std::vector<std::uint64_t> ascendingSectors, std::size_t sectorSizeBytes);

    [[nodiscard]] const std::vector<std::uint64_t>& sectors() const { return sectors_; }
    [[nodiscard]] bool contains(std::uint64_t sector) const;

    /// The first marked sector at or behind this one.
    [[nodiscard]] std::optional<std::uint64_t> firstFrom(std::uint64_t sector) const;

    /// What the marked sector holds, random bytes: different for each sector and run.
    [[nodiscard]] std::vector<char> content(std::uint64_t sector) const;

private:
    std::vector<std::uint64_t> sectors_;
    std::size_t sectorSizeBytes_ = 0;
    std::random_device::result_type runKey_ = std::random_device()();
};
