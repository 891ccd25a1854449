#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// What the service knows about a device, whatever it was learnt from. Text is the bytes
// that the drive or the file system holds, of any encoding; it never holds a zero byte.

/// What libblkid recognises in a device, in libblkid's words (usage is "filesystem",
/// "raid", "crypto" or "other"). All empty when it recognises nothing, or too much to be
/// sure which is meant.
struct Content {
    std::string usage;
    std::string type;
    std::string version;
    std::string uuid;
    std::string label;
};

/// One entry of a partition table. The range lies within the drive.
struct PartitionEntry {
    int number = 0;
    std::uint64_t offsetBytes = 0;
    std::uint64_t sizeBytes = 0;
    std::string scheme; ///< "mbr", "gpt", "apm", or libblkid's name of another kind.
    std::string type;   ///< "0x0c" in an MBR, a GUID in a GPT, the type's name elsewhere.
    std::string uuid;
    std::string label;
    bool isExtended = false; ///< It only holds logical partitions.
};

struct PartitionTable {
    std::string scheme; ///< As PartitionEntry::scheme.
    std::vector<PartitionEntry> entries;
};

/// What is only known of a whole drive.
struct DriveIdentity {
    std::string vendor;
    std::string model;
    std::string serial;
    std::string revision;
    std::string connectionInterface; ///< Such as "ata", "usb", "virtual".
};

/// A partition's place: the drive that it is on and the table entry that describes it.
struct PartitionPlace {
    std::string driveDeviceFile;
    PartitionEntry entry;
};

/// A whole drive, or a partition when `place` is there.
struct DeviceRecord {
    std::string deviceFile;           ///< Absolute path; what identifies the device.
    std::optional<dev_t> blockDevice; ///< The kernel's number; an image has none.
    /// The kernel's count of drives and media since its start (Documentation/ABI, diskseq), which
    /// it never gives twice; a partition has its drive's.
    std::optional<std::uint64_t> diskSequence;
    std::uint64_t sizeBytes = 0;
    std::uint32_t blockSizeBytes = 0;
    bool isOpticalDisc = false;
    bool isRemovable = false;
    bool isReadOnly = false;
    bool isSystemInternal = false;
    std::vector<std::string> mountPaths; ///< The oldest mount first.
    Content content;
    DriveIdentity identity;
    std::optional<PartitionTable> table;
    std::optional<PartitionPlace> place;
};

/// Where records come from: every call looks anew and gives all devices, each with a
/// device file of its own. Where they are mounted is not for the source to say.
using DeviceSource = std::function<std::vector<DeviceRecord>()>;
