#include "helpers/format/child_process.h"

#include "helpers/common/failure.h"
#include "helpers/format/file_io.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>

namespace {

constexpr int kExecFailed = 127; // as a shell reports it

// The standard streams of the child are files in memory: no pipe can fill up, and the
// parent only has to wait for the end.
struct Streams {
    Descriptor input = memory_file();
    Descriptor output = memory_file();
    Descriptor error = memory_file();
};

std::vector<char*> pointers(const std::vector<std::string>& texts)
{
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        result.push_back(const_cast<char*>(text.c_str())); // execve(2) does not write to it
    }
    result.push_back(nullptr);
    return result;
}

// Runs between fork and exec: system calls only.
[[noreturn]] void become_child(const ChildCommand& command, const Streams& streams, pid_t parent,
                               char* const* arguments, char* const* environment)
{
    // The parent may have ended before the first call: then nobody would end this child.
    bool prepared = ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && ::getppid() == parent;
    prepared = prepared && ::dup2(streams.input.get(), STDIN_FILENO) >= 0 &&
               ::dup2(streams.output.get(), STDOUT_FILENO) >= 0 &&
               ::dup2(streams.error.get(), STDERR_FILENO) >= 0;
    for (const int descriptor : command.inherited) {
        prepared = prepared && ::fcntl(descriptor, F_SETFD, 0) == 0;
    }
    if (prepared) {
        ::execve(command.program.c_str(), arguments, environment);
    }
    ::_exit(kExecFailed);
}

int wait_for_end(pid_t child)
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            throw system_failure("child process", "wait", errno);
        }
    }
    return status;
}

std::string on_one_line(std::string text)
{
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

std::string failure_reason(const std::string& program, int status, const std::string& error)
{
    const std::string end = WIFSIGNALED(status)
                                ? "ended by signal " + std::to_string(WTERMSIG(status))
                                : "exit code " + std::to_string(WEXITSTATUS(status));
    const std::string text = on_one_line(error);
    return program + " (" + end + ")" + (text.empty() ? "" : ": " + text);
}

} // namespace

ChildResult run_child(const ChildCommand& command)
{
    const Streams streams;
    write_all(streams.input.get(), command.input, 0, "child process");

    std::vector<std::string> words{command.program};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());
    const std::vector<char*> arguments = pointers(words);
    const std::vector<char*> environment = pointers(command.environment);

    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        throw system_failure(command.program, "start", errno);
    }
    if (child == 0) {
        become_child(command, streams, parent, arguments.data(), environment.data());
    }

    const int status = wait_for_end(child);
    ChildResult result;
    result.output = read_file(streams.output.get(), command.program);
    result.reason =
        failure_reason(command.program, status, read_file(streams.error.get(), command.program));
    result.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return result;
}

std::string find_program(const std::string& name)
{
    const char* const path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): one thread
    std::istringstream directories(std::string(path ? path : "") + ":/usr/sbin:/sbin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        std::string program = directory;
        program.append("/").append(name);
        // A relative entry would depend on where the user stands.
        if (directory.starts_with('/') && ::access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    throw Failure(name + ": not found; it is needed to format a device");
}
