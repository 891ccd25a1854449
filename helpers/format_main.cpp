#include "helpers/failure.h"
#include "helpers/format_request.h"
#include "helpers/format_run.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>

namespace {

// Whoever started this program stops it by ending; it must not go on unseen. A standard
// stream that is closed gets a harmless file: the device must not take its number.
void prepare_process()
{
    const pid_t parent = ::getppid();
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    int descriptor = ::open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = ::open("/dev/null", O_RDWR);
    if (descriptor < 0 || ::getppid() != parent)
        throw Failure("cannot set up the process");
    ::close(descriptor);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        prepare_process();
        run_format(parse_format_request({argv + 1, argv + argc}));
        return static_cast<int>(ExitCode::Success);
    } catch (const Failure& failure) {
        std::cerr << "format: " << failure.what() << '\n';
        return static_cast<int>(failure.exitCode());
    } catch (const std::exception& exception) {
        std::cerr << "format: " << exception.what() << '\n';
        return static_cast<int>(ExitCode::Failure);
    }
}
