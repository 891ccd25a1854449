#include "helpers/format/medium.h"

#include "helpers/common/failure.h"
#include "helpers/format/file_io.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <libfdisk/libfdisk.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>

// The first track: wiping, the partition table, the boot code.

namespace {

constexpr int kTypeFat32Lba = 0x0C;
constexpr char kActive = '\x80';

// Layout of a master boot record, in bytes (UEFI Specification 2.10, table 5.1).
constexpr std::size_t kRecordBytes = 512;
constexpr std::size_t kFirstEntryOffset = 446;
constexpr std::size_t kEntryTypeOffset = kFirstEntryOffset + 4;
constexpr std::size_t kEntryStartOffset = kFirstEntryOffset + 8;
constexpr std::size_t kEntryCountOffset = kFirstEntryOffset + 12;
constexpr std::size_t kOtherEntriesOffset = kFirstEntryOffset + 16;
constexpr std::size_t kSignatureOffset = 510;
constexpr std::string_view kSignature = "\x55\xAA";

using Probe = std::unique_ptr<blkid_struct_probe, decltype(&blkid_free_probe)>;
using Table = std::unique_ptr<fdisk_context, decltype(&fdisk_unref_context)>;
using Partition = std::unique_ptr<fdisk_partition, decltype(&fdisk_unref_partition)>;
using PartitionType = std::unique_ptr<fdisk_parttype, decltype(&fdisk_unref_parttype)>;

// Both libraries return a negative errno value.
void require(const FormatMedium& medium, const char* action, int result)
{
    if (result < 0) {
        throw system_failure(medium.name, action, -result);
    }
}

Probe start_probe(const FormatMedium& medium, std::uint64_t offset, std::uint64_t size)
{
    Probe probe(blkid_new_probe(), &blkid_free_probe);
    if (!probe ||
        blkid_probe_set_device(probe.get(), medium.descriptor, static_cast<blkid_loff_t>(offset),
                               static_cast<blkid_loff_t>(size)) != 0) {
        throw Failure(medium.name + ": look for old signatures: cannot start");
    }
    // What is damaged counts too: repair tools would find it.
    blkid_probe_enable_superblocks(probe.get(), 1);
    blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_MAGIC | BLKID_SUBLKS_BADCSUM);
    blkid_probe_enable_partitions(probe.get(), 1);
    blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_MAGIC | BLKID_PARTS_FORCE_GPT);
    return probe;
}

void wipe_signatures(const FormatMedium& medium, std::uint64_t offset)
{
    const Probe probe = start_probe(medium, offset, medium.sizeBytes - offset);
    int found = blkid_do_probe(probe.get());
    while (found == 0) {
        require(medium, "wipe old signatures", blkid_do_wipe(probe.get(), 0));
        found = blkid_do_probe(probe.get());
    }
    require(medium, "look for old signatures", found);
}

Partition only_partition(const FormatMedium& medium)
{
    Partition partition(fdisk_new_partition(), &fdisk_unref_partition);
    const PartitionType type(fdisk_new_parttype(), &fdisk_unref_parttype);
    if (!partition || !type) {
        throw system_failure(medium.name, "describe the partition", ENOMEM);
    }
    require(medium, "describe the partition", fdisk_parttype_set_code(type.get(), kTypeFat32Lba));
    require(medium, "describe the partition",
            fdisk_partition_set_type(partition.get(), type.get()));
    require(medium, "describe the partition", fdisk_partition_set_partno(partition.get(), 0));
    require(medium, "describe the partition",
            fdisk_partition_set_start(partition.get(), medium.layout.partitionStart));
    require(medium, "describe the partition",
            fdisk_partition_set_size(partition.get(), medium.layout.partitionSectors));
    // Otherwise the library rounds the size to what it takes for a good alignment.
    require(medium, "describe the partition", fdisk_partition_size_explicit(partition.get(), 1));
    return partition;
}

void write_partition_table(const FormatMedium& medium)
{
    const Table table(fdisk_new_context(), &fdisk_unref_context);
    if (!table) {
        throw system_failure(medium.name, "create the partition table", ENOMEM);
    }
    require(medium, "create the partition table", fdisk_disable_dialogs(table.get(), 1));
    require(medium, "create the partition table",
            fdisk_assign_device_by_fd(table.get(), medium.descriptor, medium.name.c_str(), 0));
    require(medium, "create the partition table", fdisk_create_disklabel(table.get(), "dos"));
    require(medium, "add the partition",
            fdisk_add_partition(table.get(), only_partition(medium).get(), nullptr));
    require(medium, "activate the partition",
            fdisk_toggle_partition_flag(table.get(), 0, DOS_FLAG_ACTIVE));
    require(medium, "write the partition table", fdisk_write_disklabel(table.get()));
    // The descriptor stays open; flush() synchronizes once, for everything.
    require(medium, "write the partition table", fdisk_deassign_device(table.get(), 1));
}

bool has_table(std::string_view record, const FormatLayout& layout)
{
    const std::string_view others =
        record.substr(kOtherEntriesOffset, kSignatureOffset - kOtherEntriesOffset);
    return record[kFirstEntryOffset] == kActive && record[kEntryTypeOffset] == kTypeFat32Lba &&
           little_endian(record, kEntryStartOffset, 4) == layout.partitionStart &&
           little_endian(record, kEntryCountOffset, 4) == layout.partitionSectors &&
           others.find_first_not_of('\0') == std::string_view::npos &&
           record.substr(kSignatureOffset) == kSignature;
}

} // namespace

void wipe_old_structures(const FormatMedium& medium)
{
    write_all(medium.descriptor, std::string(kFirstTrackBytes, '\0'), 0, medium.name);
    wipe_signatures(medium, 0);
    // A file system that began where the new partition begins.
    wipe_signatures(medium, medium.layout.partitionOffsetBytes());
}

void write_first_track(const FormatMedium& medium, const FormatContent& content)
{
    // The table first: the library clears the code in front of it.
    write_partition_table(medium);
    if (!medium.layout.bootsByBios()) {
        return;
    }
    write_all(medium.descriptor, content.bootSector, 0, medium.name);
    write_all(medium.descriptor, content.bootCore, kRecordBytes, medium.name);
}

void flush(const FormatMedium& medium)
{
    if (::fsync(medium.descriptor) != 0) {
        throw system_failure(medium.name, "flush", errno);
    }
    const int error = ::posix_fadvise(medium.descriptor, 0, 0, POSIX_FADV_DONTNEED);
    if (error != 0) {
        throw system_failure(medium.name, "flush", error);
    }
}

void check_first_track(const FormatMedium& medium, const FormatContent& content)
{
    const std::string track = read_exactly(medium.descriptor, kFirstTrackBytes, 0, medium.name);
    if (!has_table(std::string_view(track).substr(0, kRecordBytes), medium.layout)) {
        throw Failure(medium.name + ": check: the partition table reads back differently");
    }
    if (!medium.layout.bootsByBios()) {
        return;
    }
    if (!track.starts_with(content.bootSector) ||
        track.compare(kRecordBytes, content.bootCore.size(), content.bootCore) != 0) {
        throw Failure(medium.name + ": check: the boot code reads back differently");
    }
}
