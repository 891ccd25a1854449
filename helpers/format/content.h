#pragma once

#include <string>
#include <vector>

/// A file for the new partition.
struct FormatFile {
    std::string name; ///< From the root of the file system, with "/" between.
    std::string bytes;
};

/// Everything that a formatted device gets, read and checked before it is touched, so
/// that what was checked is what is written.
struct FormatContent {
    std::string bootSector; ///< The code at the start of the first sector, for BIOS.
    std::string bootCore;   ///< The code from the second sector on.
    std::vector<FormatFile> files;
};

/// The directories that the files need, parents first.
[[nodiscard]] std::vector<std::string> format_directories();

/// Reads the picture and, from "boot" beside this executable, the boot images. Throws
/// Failure when one cannot be read, the picture is not a whole PNG file of a plausible
/// size (Portable Network Graphics Specification, Third Edition, clauses 5.2, 11.2.1 and
/// 11.2.5), or the boot code does not fit before the partition.
[[nodiscard]] FormatContent load_content(const std::string& picturePath);
