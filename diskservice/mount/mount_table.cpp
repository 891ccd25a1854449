#include "diskservice/mount/mount_table.h"

#include "diskservice/source/image_source.h"
#include "diskservice/source/mount_info.h"
#include "diskservice/source/sysfs.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

// Some file systems (btrfs) show a device number of their own: then the name tells.
dev_t device_number(const MountEntry& mount)
{
    struct stat status = {};
    if (major(mount.number) == 0 && mount.source.starts_with('/') &&
        ::stat(mount.source.c_str(), &status) == 0 && S_ISBLK(status.st_mode)) {
        return status.st_rdev;
    }
    return mount.number;
}

bool is_mount_of(const std::string& backingFile, const std::string& image)
{
    std::error_code ignored;
    return !backingFile.empty() && fs::equivalent(backingFile, image, ignored);
}

} // namespace

MountTable::MountTable(const std::string& root)
{
    for (const MountEntry& mount : read_mount_info(root)) {
        const dev_t number = device_number(mount);
        const fs::path device = root + "/sys/dev/block/" + std::to_string(major(number)) + ':' +
                                std::to_string(minor(number));
        std::error_code ignored;
        const bool isPartition = fs::exists(device / "partition", ignored);
        const fs::path loop = (isPartition ? device / ".." : device) / "loop";
        const std::uint64_t start = isPartition ? number_in(device / "start") : 0;
        mounts_.push_back({mount.path, number, first_line(loop / "backing_file"),
                           number_in(loop / "offset") + start * kSysfsUnitBytes});
    }
}

std::vector<std::string> MountTable::pathsOf(const DeviceRecord& device) const
{
    const ImageRange range = image_range(device);
    std::vector<std::string> paths;
    for (const Mount& mount : mounts_) {
        if (device.blockDevice ? mount.number == *device.blockDevice
                               : mount.offsetBytes == range.offsetBytes &&
                                     is_mount_of(mount.backingFile, range.path)) {
            paths.push_back(mount.path);
        }
    }
    return paths;
}
