#pragma once

#include "helpers/format/content.h"
#include "helpers/format/layout.h"

#include <cstdint>
#include <string>

// The steps that change a device, each a function, and those that read back what they
// did. All work on an open descriptor; all throw Failure.

/// What the steps work on.
struct FormatMedium {
    std::string name;    ///< For messages.
    int descriptor = -1; ///< Open for reading and writing; kept by the caller.
    std::uint64_t sizeBytes = 0;
    FormatLayout layout;
};

/// The absolute paths of the programs that make the file system.
struct FormatTools {
    std::string mkfs = {};
    std::string mmd = {};
    std::string mcopy = {};
};

/// Looks for all programs. Throws Failure when one is missing.
[[nodiscard]] FormatTools find_tools();

/// Zeroes the first track and wipes the signatures of file systems, RAID members and
/// partition tables, the table's copy at the end of the device included, so that nothing
/// takes the device for what it was.
void wipe_old_structures(const FormatMedium& medium);

/// Makes the file system, empty, labelled "ERASED". The program opens a block device
/// exclusively itself, so nobody else may hold it.
void make_file_system(const FormatMedium& medium, const FormatTools& tools);

/// Puts the files on the file system.
void put_files(const FormatMedium& medium, const FormatTools& tools, const FormatContent& content);

/// Writes the partition table and, where it is of use, the boot code.
void write_first_track(const FormatMedium& medium, const FormatContent& content);

/// Brings everything written to the medium and forgets what is cached, so that the checks
/// read from the medium.
void flush(const FormatMedium& medium);

/// Reads all that write_first_track() wrote back and compares.
void check_first_track(const FormatMedium& medium, const FormatContent& content);

/// Reads the file system's boot sector and all files back and compares.
void check_file_system(const FormatMedium& medium, const FormatTools& tools,
                       const FormatContent& content);
