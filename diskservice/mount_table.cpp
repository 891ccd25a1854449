#include "diskservice/mount_table.h"

#include "diskservice/image_source.h"

#include <libmount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <memory>

namespace fs = std::filesystem;

namespace {

// sysfs tells the start of a partition in units of this size, whatever its sectors are.
constexpr std::uint64_t kStartUnitBytes = 512;

// Some file systems (btrfs) show a device number of their own: then the name tells.
dev_t device_number(libmnt_fs* mount)
{
    const dev_t number = mnt_fs_get_devno(mount);
    const char* source = mnt_fs_get_srcpath(mount);
    struct stat status = {};
    if (major(number) == 0 && source && ::stat(source, &status) == 0 && S_ISBLK(status.st_mode)) {
        return status.st_rdev;
    }
    return number;
}

std::string first_line(const fs::path& path)
{
    std::string line;
    std::ifstream file(path);
    std::getline(file, line);
    return line;
}

std::uint64_t number_in(const fs::path& path)
{
    std::uint64_t number = 0;
    std::ifstream file(path);
    file >> number;
    return number;
}

} // namespace

MountTable::MountTable()
{
    const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table(
        mnt_new_table_from_file("/proc/self/mountinfo"), mnt_unref_table);
    const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> iterator(
        mnt_new_iter(MNT_ITER_FORWARD), mnt_free_iter);
    libmnt_fs* mount = nullptr;
    while (table && mnt_table_next_fs(table.get(), iterator.get(), &mount) == 0) {
        const dev_t number = device_number(mount);
        const fs::path device =
            "/sys/dev/block/" + std::to_string(major(number)) + ':' + std::to_string(minor(number));
        std::error_code ignored;
        const bool isPartition = fs::exists(device / "partition", ignored);
        const fs::path loop = (isPartition ? device / ".." : device) / "loop";
        if (const std::string file = first_line(loop / "backing_file"); !file.empty()) {
            const std::uint64_t start = isPartition ? number_in(device / "start") : 0;
            mounts_.push_back({mnt_fs_get_target(mount), file,
                               number_in(loop / "offset") + start * kStartUnitBytes});
        }
    }
}

std::vector<std::string> MountTable::pathsOf(const DeviceRecord& device) const
{
    const ImageRange range = image_range(device);
    std::vector<std::string> paths;
    for (const Mount& mount : mounts_) {
        std::error_code ignored;
        if (mount.offsetBytes == range.offsetBytes &&
            fs::equivalent(mount.backingFile, range.path, ignored)) {
            paths.push_back(mount.path);
        }
    }
    return paths;
}
