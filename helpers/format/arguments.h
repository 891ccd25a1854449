#pragma once

#include <string>
#include <vector>

/// What the command line asks for.
struct FormatRequest {
    bool showHelp = false;    ///< Print format_help() and do nothing; the rest is empty.
    bool emulate = false;     ///< Check everything, write nothing.
    std::string device = {};  ///< The device or image file to format.
    std::string picture = {}; ///< The PNG file to put on it.
};

/// Reads the arguments after the program's name. Throws Failure (ExitCode::Usage).
[[nodiscard]] FormatRequest parse_format_request(const std::vector<std::string>& arguments);

/// The text of --help.
[[nodiscard]] std::string format_help();
