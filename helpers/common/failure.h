#pragma once

#include "posix/exit_code.h"

#include <stdexcept>
#include <string>
#include <system_error>

// How the helper programs fail: anything that ends a run is thrown as a Failure and
// becomes one message line and an exit code in main().

/// The text with "?" for each control character: a path can hold any byte, and a message stays
/// one line that does nothing to a terminal.
[[nodiscard]] std::string one_line(std::string text);

/// A message for the user, on one line, and the exit code that goes with it.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string& message, ExitCode exitCode = ExitCode::Failure)
        : std::runtime_error(one_line(message)), exitCode_(exitCode)
    {
    }

    [[nodiscard]] ExitCode exitCode() const { return exitCode_; }

private:
    ExitCode exitCode_;
};

/// "device: action: reason", the reason being the system's text for an errno value.
inline Failure system_failure(const std::string& device, const std::string& action, int error)
{
    return Failure(device + ": " + action + ": " + std::generic_category().message(error));
}
