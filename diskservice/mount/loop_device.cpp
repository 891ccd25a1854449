#include "diskservice/mount/loop_device.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

[[noreturn]] void fail(const std::string& action)
{
    throw std::system_error(errno, std::generic_category(), action);
}

Descriptor open_device(const std::string& path, int mode)
{
    Descriptor descriptor(::open(path.c_str(), mode | O_CLOEXEC));
    if (descriptor.get() < 0) {
        fail("open " + path);
    }
    return descriptor;
}

} // namespace

LoopDevice attach_loop_device(const ProbeRange& range, bool isReadOnly)
{
    loop_config config = {};
    config.fd = static_cast<__u32>(range.descriptor);
    config.block_size = range.sectorSizeBytes;
    config.info.lo_offset = range.offsetBytes;
    config.info.lo_sizelimit = range.sizeBytes;
    config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
    if (isReadOnly) {
        config.info.lo_flags |= LO_FLAGS_READ_ONLY;
    }

    // Another program can take the free device before this one does.
    constexpr int kAttempts = 16;
    const Descriptor control = open_device("/dev/loop-control", O_RDWR);
    for (int attempt = 1;; ++attempt) {
        const int number = ::ioctl(control.get(), LOOP_CTL_GET_FREE);
        if (number < 0) {
            fail("find a free loop device");
        }
        const std::string path = "/dev/loop" + std::to_string(number);
        Descriptor device = open_device(path, isReadOnly ? O_RDONLY : O_RDWR);
        if (::ioctl(device.get(), LOOP_CONFIGURE, &config) == 0) {
            return {std::move(device), path};
        }
        if (errno != EBUSY || attempt == kAttempts) {
            fail("set up " + path);
        }
    }
}
