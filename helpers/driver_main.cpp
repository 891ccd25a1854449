#include "helpers/driver_output.h"
#include "helpers/driver_request.h"
#include "helpers/driver_run.h"
#include "helpers/failure.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>

namespace {

// The application stops a run by killing it, and no driver may keep erasing unseen when the
// application itself dies. A parent that was gone before the first line of main() cannot be
// told from one that never was (prctl(2), PR_SET_PDEATHSIG); then it is the first progress
// line, written before the first sector, that finds its pipe broken.
void die_with_parent()
{
    const pid_t parent = ::getppid();
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
        throw Failure("the parent process has gone");
    }
}

// With one of them closed the device would take its place, and messages would end up on it.
void check_standard_streams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) < 0) {
            throw Failure("standard stream " + std::to_string(stream) + " is closed");
        }
    }
}

ExitCode report_error(const std::string& message, ExitCode exitCode)
{
    try {
        write_output_line("error: " + message);
    } catch (const Failure&) {
        // Nobody reads any more; what is left is the exit code.
        return exitCode;
    }
    return exitCode;
}

} // namespace

int main(int argc, char* argv[])
{
    ExitCode exitCode = ExitCode::Failure;
    try {
        die_with_parent();
        check_standard_streams();
        std::signal(SIGPIPE, SIG_IGN); // a broken pipe is a failed write
        const auto request = parse_driver_request({argv + std::min(argc, 1), argv + argc});
        if (request) {
            run_driver(*request);
        } else {
            write_output(driver_help());
        }
        exitCode = ExitCode::Success;
    } catch (const Failure& failure) {
        exitCode = report_error(failure.what(), failure.exitCode());
    } catch (const std::exception& exception) {
        exitCode = report_error(exception.what(), ExitCode::Failure);
    }
    return static_cast<int>(exitCode);
}
