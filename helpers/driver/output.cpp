#include "helpers/driver/output.h"

#include "helpers/common/failure.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

void write_output(const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) {
            throw system_failure("standard output", "write", errno);
        }
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        }
    }
}

void write_output_line(const std::string& line)
{
    write_output(one_line(line) + '\n');
}

void write_note(const std::string& line)
{
    std::cerr << "driver: " + one_line(line) + '\n';
}
