#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

// Which drive a path means: several in one computer can be alike, and a path can come to mean
// another one.

/// "MODEL, SERIAL" of the drive with this sysfs directory (of a partition: that of its drive), or
/// one of the two, or nothing.
[[nodiscard]] std::string model_and_serial(const std::filesystem::path& deviceDirectory);

/// The same of a block device.
[[nodiscard]] std::string model_and_serial(dev_t number);

/// What the program that started this one knows of the drive that it means.
struct ExpectedDrive {
    std::optional<std::uint64_t> diskSequence;
    std::optional<std::uint64_t> sizeBytes;

    /// As helpers/protocol/expected_drive.h says. Throws Failure with ExitCode::Usage when a
    /// variable holds no number.
    [[nodiscard]] static ExpectedDrive fromEnvironment();
};
