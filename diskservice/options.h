#pragma once

#include "diskservice/source/image_source.h"

#include <stdexcept>
#include <string>
#include <vector>

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
