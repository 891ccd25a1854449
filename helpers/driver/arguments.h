#pragma once

#include "helpers/common/target_device.h"
#include "helpers/driver/run_plan.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the user asks the driver to do; all of it is checked, except whether the device
/// exists and may be used.
struct DriverArguments {
    std::string devicePath;
    TargetDevice::Access access = TargetDevice::Access::Read;
    std::string pattern; ///< Pattern bytes; never empty when writing, not used when reading.
    std::uint32_t sectorsPerStep = 0;
    Verification verification = Verification::Tenth; ///< From the environment.
};

/// Reads the words after the program's name, which may come in any order. No value
/// means that the user asks for the help text. How much is read back comes from the environment.
/// Throws Failure with ExitCode::Usage when an argument is unknown, missing, repeated or malformed;
/// nothing is opened.
[[nodiscard]] std::optional<DriverArguments>
parse_driver_arguments(const std::vector<std::string>& words);

/// The text of --help.
[[nodiscard]] std::string driver_help();
