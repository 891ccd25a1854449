#include "helpers/format/layout.h"

#include "helpers/common/failure.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kMiB = 1024 * kKiB;
constexpr std::uint64_t kGiB = 1024 * kMiB;

constexpr std::uint64_t kLastTableSector = 0xFFFFFFFF; // 32-bit fields of the table
constexpr std::uint64_t kMaximumClusters = 0x0FFFFFF5; // above are reserved cluster numbers
constexpr std::uint32_t kMaximumSectorBytes = 4096;
constexpr std::uint64_t kMinimumReservedSectors = 32; // mkfs.fat's default for FAT32
constexpr std::uint64_t kFatCount = 2;
constexpr std::uint64_t kFatEntryBytes = 4;

struct ClusterSize {
    std::uint64_t upToBytes; // size of the file system, included
    std::uint32_t bytes;
};

// The sizes that mkfs.fat and Windows choose. More than 32 KiB is not portable.
constexpr std::array kClusterSizes{
    ClusterSize{260 * kMiB, 512},  ClusterSize{8 * kGiB, 4096},    ClusterSize{16 * kGiB, 8192},
    ClusterSize{32 * kGiB, 16384}, ClusterSize{UINT64_MAX, 32768},
};

std::uint64_t divide_up(std::uint64_t value, std::uint64_t by)
{
    return (value + by - 1) / by;
}

std::uint32_t sectors_per_cluster(std::uint64_t bytes, std::uint32_t sectorSizeBytes)
{
    const auto* size = kClusterSizes.begin();
    while (bytes > size->upToBytes) {
        ++size;
    }
    return std::max(size->bytes / sectorSizeBytes, 1U);
}

// The length of one allocation table, by the arithmetic of mkfs.fat.
std::uint64_t table_sectors(const FormatLayout& layout)
{
    const std::uint64_t bytes =
        (layout.fileSystemSectors - kMinimumReservedSectors) * layout.sectorSizeBytes;
    const std::uint64_t clusters = bytes / (layout.clusterSizeBytes() + kFatCount * kFatEntryBytes);
    return divide_up((clusters + 2) * kFatEntryBytes, layout.sectorSizeBytes);
}

// Fills the reserved area up so that the clusters begin at a multiple of their size, as
// drives with large physical sectors like it.
void place_clusters(FormatLayout& layout)
{
    if (layout.fileSystemSectors <= kMinimumReservedSectors) {
        return;
    }
    const std::uint64_t tables = kFatCount * table_sectors(layout);
    const std::uint64_t dataStart =
        divide_up(kMinimumReservedSectors + tables, layout.sectorsPerCluster) *
        layout.sectorsPerCluster;
    layout.reservedSectors = dataStart - tables;
    if (layout.fileSystemSectors > dataStart) {
        layout.clusterCount = (layout.fileSystemSectors - dataStart) / layout.sectorsPerCluster;
    }
}

} // namespace

std::uint64_t FormatLayout::partitionOffsetBytes() const
{
    return partitionStart * sectorSizeBytes;
}

std::uint64_t FormatLayout::clusterSizeBytes() const
{
    return std::uint64_t{sectorsPerCluster} * sectorSizeBytes;
}

bool FormatLayout::bootsByBios() const
{
    return sectorSizeBytes == 512;
}

FormatLayout plan_layout(const std::string& device, std::uint64_t sizeBytes,
                         std::uint32_t sectorSizeBytes)
{
    if (sectorSizeBytes > kMaximumSectorBytes) {
        throw Failure(device + ": format: FAT32 has no sectors of " +
                      std::to_string(sectorSizeBytes) + " bytes");
    }
    FormatLayout layout;
    layout.sectorSizeBytes = sectorSizeBytes;
    layout.partitionStart = kFirstTrackBytes / sectorSizeBytes;

    const std::uint64_t end = std::min(sizeBytes / sectorSizeBytes, kLastTableSector);
    if (end > layout.partitionStart) {
        layout.partitionSectors = end - layout.partitionStart;
    }
    layout.sectorsPerCluster =
        sectors_per_cluster(layout.partitionSectors * sectorSizeBytes, sectorSizeBytes);
    layout.partitionSectors =
        std::min(layout.partitionSectors, kMaximumClusters * layout.sectorsPerCluster);

    layout.fileSystemSectors =
        layout.partitionSectors * sectorSizeBytes / kKiB * kKiB / sectorSizeBytes;
    place_clusters(layout);
    if (layout.clusterCount < kMinimumClusters) {
        throw Failure(device + ": format: the device is too small for FAT32");
    }
    return layout;
}

void check_room(const std::string& device, const FormatLayout& layout,
                const std::vector<std::uint64_t>& fileSizesBytes)
{
    std::uint64_t clusters = 3; // the root directory and two more
    for (const std::uint64_t bytes : fileSizesBytes) {
        clusters += divide_up(bytes, layout.clusterSizeBytes());
    }
    if (clusters > layout.clusterCount) {
        throw Failure(device + ": format: not enough room for the picture and the boot files");
    }
}
