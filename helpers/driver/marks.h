#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

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

    /// The marked ones of so many sectors, ascending.
    [[nodiscard]] std::span<const std::uint64_t> among(std::uint64_t firstSector,
                                                       std::uint64_t count) const;

    /// Fills one sector of memory with what the marked sector holds, random bytes: different for
    /// each sector and run.
    void fill(std::uint64_t sector, char* memory) const;

private:
    std::vector<std::uint64_t> sectors_;
    std::size_t sectorSizeBytes_ = 0;
    std::uint64_t runKey_ = 0;
};
