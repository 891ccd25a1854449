#pragma once

#include <string>
#include <vector>

/// What the command line asks for.
struct FormatArguments {
    bool showHelp = false;    ///< Print format_help() and do nothing; the rest is empty.
    bool emulate = false;     ///< Check everything, write nothing.
    std::string device = {};  ///< The device or image file to format.
    std::string picture = {}; ///< The PNG file to put on it.
};

/// Reads the words after the program's name. Throws Failure (ExitCode::Usage).
[[nodiscard]] FormatArguments parse_format_arguments(const std::vector<std::string>& words);

/// The text of --help.
[[nodiscard]] std::string format_help();
