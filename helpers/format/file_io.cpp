#include "helpers/format/file_io.h"

#include "helpers/common/failure.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

Descriptor open_file(const std::string& path, int flags)
{
    Descriptor result(::open(path.c_str(), flags | O_CLOEXEC));
    if (result.get() < 0) {
        throw system_failure(path, "open", errno);
    }
    return result;
}

Descriptor memory_file()
{
    Descriptor result(::memfd_create("format", MFD_CLOEXEC));
    if (result.get() < 0) {
        throw system_failure("memory file", "create", errno);
    }
    return result;
}

void write_all(int descriptor, std::string_view bytes, std::uint64_t offsetBytes,
               const std::string& name)
{
    while (!bytes.empty()) {
        const ssize_t count =
            ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offsetBytes));
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            throw system_failure(name, "write", count < 0 ? errno : EIO);
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
        offsetBytes += static_cast<std::uint64_t>(count);
    }
}

std::string read_exactly(int descriptor, std::size_t count, std::uint64_t offsetBytes,
                         const std::string& name)
{
    std::string result(count, '\0');
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got = ::pread(descriptor, result.data() + done, count - done,
                                    static_cast<off_t>(offsetBytes + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            throw system_failure(name, "read", got < 0 ? errno : EIO);
        }
        done += static_cast<std::size_t>(got);
    }
    return result;
}

std::string read_file(int descriptor, const std::string& name)
{
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        throw system_failure(name, "stat", errno);
    }
    return read_exactly(descriptor, static_cast<std::size_t>(status.st_size), 0, name);
}

std::uint32_t little_endian(std::string_view bytes, std::size_t offset, std::size_t count)
{
    std::uint32_t value = 0;
    for (std::size_t index = count; index > 0; --index) {
        value = value << 8U | static_cast<unsigned char>(bytes[offset + index - 1]);
    }
    return value;
}
