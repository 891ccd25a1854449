#pragma once

#include "diskservice/source/device_record.h"

#include <cstdint>
#include <optional>
#include <stdexcept>

// libblkid's low-level probing of an open block device or image file.

/// libblkid could not read what it was to look at.
class ProbeFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A part of an open device or file; not empty.
struct ProbeRange {
    int descriptor = -1;
    std::uint64_t offsetBytes = 0;
    std::uint64_t sizeBytes = 0;
    std::uint32_t sectorSizeBytes = 0; ///< Logical sector size of the whole drive.
};

/// What the range holds, partition tables left aside. Throws ProbeFailure.
Content probe_content(const ProbeRange& range);

/// The UUID of a disc image (iso9660) on the range, whatever else is left there of older contents;
/// empty when there is none. Throws ProbeFailure.
std::string probe_disc_image(const ProbeRange& range);

/// The partition table at the start of the range, which is the whole drive. As the kernel
/// does, it leaves out partitions that begin behind the drive's end and cuts those that
/// reach over it. Throws ProbeFailure.
std::optional<PartitionTable> probe_partition_table(const ProbeRange& drive);
