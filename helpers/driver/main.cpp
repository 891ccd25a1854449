#include "helpers/common/failure.h"
#include "helpers/common/startup.h"
#include "helpers/driver/arguments.h"
#include "helpers/driver/output.h"
#include "helpers/driver/run.h"
#include "helpers/protocol/driver_protocol.h"

#include <algorithm>
#include <csignal>
#include <exception>

namespace {

ExitCode report_error(const std::string& message, ExitCode exitCode)
{
    try {
        write_output_line(driver_protocol::kError + message);
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
        prepare_process();
        std::signal(SIGPIPE, SIG_IGN); // a broken pipe is a failed write
        const auto arguments = parse_driver_arguments({argv + std::min(argc, 1), argv + argc});
        if (arguments) {
            run_driver(*arguments);
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
