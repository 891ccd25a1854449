#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Where the partition and its FAT32 file system lie on a device. Sectors are those of
/// the device, 512 to 4096 bytes.
struct FormatLayout {
    std::uint32_t sectorSizeBytes = 0;
    std::uint64_t partitionStart = 0; ///< In sectors from the start of the device.
    std::uint64_t partitionSectors = 0;
    std::uint64_t fileSystemSectors = 0; ///< Whole KiB, as mkfs.fat counts them.
    std::uint64_t reservedSectors = 0;   ///< From the boot sector to the allocation tables.
    std::uint32_t sectorsPerCluster = 0;
    std::uint64_t clusterCount = 0;

    [[nodiscard]] std::uint64_t partitionOffsetBytes() const;
    [[nodiscard]] std::uint64_t clusterSizeBytes() const;

    /// A BIOS reads sectors of 512 bytes, which is what the boot code counts in; a drive
    /// with larger sectors boots by UEFI only.
    [[nodiscard]] bool bootsByBios() const;
};

/// The first track: all before the partition. It holds the partition table in its first
/// sector and the boot code.
constexpr std::uint64_t kFirstTrackBytes = std::uint64_t{1} << 20;

/// With fewer clusters a file system is not FAT32 to those who read it (Microsoft, FAT32
/// File System Specification 1.03, "FAT Type Determination").
constexpr std::uint64_t kMinimumClusters = 65525;

/// One partition from the end of the first track to the end of the device, or as far as
/// a partition table (32 bits) and FAT32 (28 bits of clusters) can count. Throws Failure
/// for a device that is too small for FAT32.
[[nodiscard]] FormatLayout plan_layout(const std::string& device, std::uint64_t sizeBytes,
                                       std::uint32_t sectorSizeBytes);

/// Throws Failure unless files of these sizes fit, with two directories beside them.
void check_room(const std::string& device, const FormatLayout& layout,
                const std::vector<std::uint64_t>& fileSizesBytes);
