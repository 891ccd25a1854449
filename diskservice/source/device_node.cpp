#include "diskservice/source/device_node.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace {

std::string reason_for_no_node(const std::string& root, const DeviceRecord& device,
                               const struct stat& status)
{
    if (!root.empty() && (status.st_mode & S_ISVTX) != 0) {
        return {};
    }
    if (!S_ISBLK(status.st_mode)) {
        return "the file under its name is no block device";
    }
    return status.st_rdev == device.blockDevice ? "" : "another device is under its name";
}

} // namespace

std::string reason_for_no_node(const std::string& root, const DeviceRecord& device)
{
    struct stat status = {};
    return ::stat((root + device.deviceFile).c_str(), &status) == 0
               ? reason_for_no_node(root, device, status)
               : "";
}

Descriptor open_node(const std::string& root, const DeviceRecord& device, int flags)
{
    Descriptor node(::open((root + device.deviceFile).c_str(), O_RDONLY | O_CLOEXEC | flags));
    struct stat status = {};
    if (node.isOpen() &&
        (::fstat(node.get(), &status) != 0 || !reason_for_no_node(root, device, status).empty())) {
        errno = ENXIO;
        return Descriptor();
    }
    return node;
}
