#include "diskservice/source/content_probe.h"

#include <blkid/blkid.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace {

// libblkid counts partitions in units of this size, whatever the drive's sectors are.
constexpr std::uint64_t kTableUnitBytes = 512;

struct ProbeDeleter {
    void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using Probe = std::unique_ptr<blkid_struct_probe, ProbeDeleter>;

Probe make_probe(const ProbeRange& range)
{
    Probe probe(blkid_new_probe());
    if (!probe || blkid_probe_set_device(probe.get(), range.descriptor,
                                         static_cast<blkid_loff_t>(range.offsetBytes),
                                         static_cast<blkid_loff_t>(range.sizeBytes)) != 0) {
        throw ProbeFailure("cannot be probed");
    }
    // Only now: set_device resets it.
    if (blkid_probe_set_sectorsize(probe.get(), range.sectorSizeBytes) != 0) {
        throw ProbeFailure("cannot be probed with its sector size");
    }
    return probe;
}

std::string text_or_empty(const char* text)
{
    return text ? text : std::string();
}

std::string probed_value(const Probe& probe, const char* name)
{
    const char* text = nullptr;
    if (blkid_probe_lookup_value(probe.get(), name, &text, nullptr) != 0) {
        return {};
    }
    return text_or_empty(text);
}

std::string scheme_name(const char* blkidName)
{
    const std::string_view name = blkidName ? blkidName : "";
    if (name == "dos") {
        return "mbr";
    }
    if (name == "mac") {
        return "apm";
    }
    return std::string(name);
}

std::string type_name(blkid_partition partition)
{
    if (const char* name = blkid_partition_get_type_string(partition)) {
        return name;
    }
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%02x",
                  static_cast<unsigned>(blkid_partition_get_type(partition)));
    return text.data();
}

// Nothing when the partition begins behind the drive's end. All sizes come from the drive
// and are hostile: they are compared before they are multiplied.
std::optional<PartitionEntry> table_entry(blkid_partition partition, std::uint64_t driveBytes)
{
    const std::uint64_t driveUnits = driveBytes / kTableUnitBytes;
    const auto start = static_cast<std::uint64_t>(blkid_partition_get_start(partition));
    const auto length = static_cast<std::uint64_t>(blkid_partition_get_size(partition));
    if (start >= driveUnits || length == 0) {
        return std::nullopt;
    }
    PartitionEntry entry;
    entry.number = blkid_partition_get_partno(partition);
    entry.offsetBytes = start * kTableUnitBytes;
    entry.sizeBytes = std::min(length, driveUnits - start) * kTableUnitBytes;
    entry.scheme = scheme_name(blkid_parttable_get_type(blkid_partition_get_table(partition)));
    entry.type = type_name(partition);
    entry.uuid = text_or_empty(blkid_partition_get_uuid(partition));
    entry.label = text_or_empty(blkid_partition_get_name(partition));
    entry.isExtended = blkid_partition_is_extended(partition) != 0;
    return entry;
}

} // namespace

Content probe_content(const ProbeRange& range)
{
    const Probe probe = make_probe(range);
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_USAGE | BLKID_SUBLKS_TYPE |
                                                       BLKID_SUBLKS_VERSION | BLKID_SUBLKS_UUID |
                                                       BLKID_SUBLKS_LABEL);
    // 1 is nothing found, -2 is several kinds found.
    const int result = blkid_do_safeprobe(probe.get());
    if (result == -1) {
        throw ProbeFailure("its contents cannot be read");
    }
    if (result != 0) {
        return {};
    }
    return {probed_value(probe, "USAGE"), probed_value(probe, "TYPE"),
            probed_value(probe, "VERSION"), probed_value(probe, "UUID"),
            probed_value(probe, "LABEL")};
}

std::string probe_disc_image(const ProbeRange& range)
{
    std::string type = "iso9660";
    std::array<char*, 2> types{type.data(), nullptr};
    const Probe probe = make_probe(range);
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID);
    blkid_probe_filter_superblocks_type(probe.get(), BLKID_FLTR_ONLYIN, types.data());
    const int result = blkid_do_safeprobe(probe.get());
    if (result == -1) {
        throw ProbeFailure("its contents cannot be read");
    }
    return result == 0 ? probed_value(probe, "UUID") : std::string();
}

std::optional<PartitionTable> probe_partition_table(const ProbeRange& drive)
{
    const Probe probe = make_probe(drive);
    blkid_probe_enable_superblocks(probe.get(), 0);
    blkid_probe_enable_partitions(probe.get(), 1);
    const int result = blkid_do_safeprobe(probe.get());
    if (result == -1) {
        throw ProbeFailure("its partition table cannot be read");
    }
    blkid_partlist list = result == 0 ? blkid_probe_get_partitions(probe.get()) : nullptr;
    blkid_parttable found = list ? blkid_partlist_get_table(list) : nullptr;
    if (!found) {
        return std::nullopt;
    }
    PartitionTable table{scheme_name(blkid_parttable_get_type(found)), {}};
    for (int i = 0; i < blkid_partlist_numof_partitions(list); ++i) {
        if (auto entry = table_entry(blkid_partlist_get_partition(list, i), drive.sizeBytes)) {
            table.entries.push_back(std::move(*entry));
        }
    }
    return table;
}
