#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

/// An image file that is served as a drive.
struct ImageOption {
    std::string path; ///< Absolute; symbolic links are kept.
    std::string model;
    std::string serial;
    std::uint32_t sectorSizeBytes = 512;
    bool isOptical = false;
};

/// What the device files of an image's partitions begin with, before the number. It is the
/// kernel's rule: "sda1", but "nvme0n1p1" after a digit.
std::string partition_stem(const std::string& image);

/// What the command line asks for.
struct Options {
    enum class Action { Serve, ShowHelp, ShowVersion };

    Action action = Action::Serve;
    std::vector<ImageOption> images; ///< No two can yield the same device file.
    std::string root;                ///< Stands before /sys, /proc and /dev; may be empty.
};

/// A command line that makes no sense; the message names the argument.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The text of --help.
extern const char* const kHelpText;

/// Reads the arguments, the program's name left out. Throws UsageError.
Options parse_options(const std::vector<std::string>& arguments);
