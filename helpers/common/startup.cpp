#include "helpers/common/startup.h"

#include "helpers/common/failure.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace {

// The application stops a run by killing it, and no helper may go on unseen when the
// application itself dies. A parent that was gone before the first line of main() cannot be
// told from one that never was (prctl(2), PR_SET_PDEATHSIG).
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

} // namespace

void prepare_process()
{
    die_with_parent();
    check_standard_streams();
}
