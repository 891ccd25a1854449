#include "diskservice/source/system_drives.h"

#include "diskservice/source/mount_info.h"
#include "diskservice/source/sysfs.h"
#include "posix/descriptor.h"

#include <fcntl.h>
#include <libmount.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <array>
#include <filesystem>
#include <set>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace {

bool is_below(const std::string& path, const std::string& folder)
{
    return folder == "/" || path == folder || path.starts_with(folder + '/');
}

// The folders that an overlay shows, going by its mount options.
std::vector<std::string> overlay_layers(const std::string& options)
{
    std::vector<std::string> layers;
    char* rest = const_cast<char*>(options.c_str()); // It is only read.
    char* name = nullptr;
    char* value = nullptr;
    std::size_t nameLength = 0;
    std::size_t valueLength = 0;
    while (mnt_optstr_next_option(&rest, &name, &nameLength, &value, &valueLength) == 0) {
        const std::string_view option(name, nameLength);
        if (!value || !(option.starts_with("lowerdir") || option == "upperdir")) {
            continue;
        }
        std::string_view list(value, valueLength);
        while (!list.empty()) {
            const std::size_t end = std::min(list.find(':'), list.size());
            layers.emplace_back(list.substr(0, end));
            list.remove_prefix(std::min(end + 1, list.size()));
        }
    }
    return layers;
}

// Follows everything that the system is mounted from down to the drives.
class SystemDriveSearch {
public:
    explicit SystemDriveSearch(const std::string& root)
        : root_(root), mounts_(read_mount_info(root))
    {
    }

    /// The file system that this path lies on.
    void followPath(const std::string& path)
    {
        const MountEntry* found = nullptr;
        for (const MountEntry& mount : mounts_) { // Of two at the same place the later one shows.
            if (is_below(path, mount.path) && (!found || mount.path.size() >= found->path.size())) {
                found = &mount;
            }
        }
        if (found && seenMounts_.insert(found->path).second) {
            followMount(*found);
        }
    }

    [[nodiscard]] const std::map<std::string, std::string>& drives() const { return drives_; }

private:
    void followMount(const MountEntry& mount)
    {
        why_ = "the running system came from it (" + mount.path + ')';
        if (mount.type == "overlay") {
            for (const std::string& layer : overlay_layers(mount.options)) {
                followPath(layer);
            }
            // A layer's mount may have been left behind in the start-up's own file system.
            followAllIn(root_ + "/sys/block", "loop");
        } else if (major(mount.number) != 0) {
            followNumber(mount.number);
        } else { // Some file systems (btrfs) have a number of their own: then the name tells.
            std::error_code ignored;
            const fs::path node = fs::canonical(root_ + mount.source, ignored);
            if (mount.source.starts_with("/dev/") && !node.empty()) {
                followDevice(root_ + "/sys/class/block/" + node.filename().string());
            }
        }
    }

    void followNumber(dev_t number)
    {
        followDevice(root_ + "/sys/dev/block/" + std::to_string(major(number)) + ':' +
                     std::to_string(minor(number)));
    }

    void followDevice(const fs::path& link)
    {
        std::error_code failed;
        const fs::path device = fs::canonical(link, failed);
        if (failed || !seenDevices_.insert(device).second) {
            return;
        }
        followPools(device.filename());
        followAllIn(device / "slaves");
        if (const std::string file = first_line(device / "loop/backing_file"); !file.empty()) {
            followLoop(device.filename(), file);
        }
        if (fs::exists(device / "partition")) {
            followDevice(device.parent_path());
        } else {
            drives_.emplace(device.filename(), why_);
        }
    }

    // The loop device itself knows best on which device its file lies: the path may be that of
    // a mount that is out of sight.
    void followLoop(const std::string& name, const std::string& file)
    {
        const std::string node = root_ + "/dev/" + name;
        const Descriptor loop(::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        loop_info64 info = {};
        if (loop.get() >= 0 && ::ioctl(loop.get(), LOOP_GET_STATUS64, &info) == 0) {
            followNumber(static_cast<dev_t>(info.lo_device));
        }
        followPath(file);
    }

    // Every drive of a btrfs that this device is one of.
    void followPools(const fs::path& name)
    {
        std::error_code ignored;
        for (const fs::directory_entry& pool :
             fs::directory_iterator(root_ + "/sys/fs/btrfs", ignored)) {
            if (fs::exists(pool.path() / "devices" / name, ignored)) {
                followAllIn(pool.path() / "devices");
            }
        }
    }

    void followAllIn(const fs::path& folder, const std::string& prefix = {})
    {
        std::error_code ignored;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, ignored)) {
            const std::string name = entry.path().filename();
            if (name.starts_with(prefix) &&
                (prefix != "loop" || fs::exists(entry.path() / "loop/backing_file", ignored))) {
                followDevice(entry.path());
            }
        }
    }

    std::string root_;
    std::vector<MountEntry> mounts_;
    std::set<std::string> seenMounts_;
    std::set<fs::path> seenDevices_;
    std::map<std::string, std::string> drives_;
    std::string why_;
};

} // namespace

std::map<std::string, std::string> system_drives(const std::string& root)
{
    SystemDriveSearch search(root);
    for (const char* path : {"/", "/usr", "/boot", "/boot/efi"}) {
        search.followPath(path);
    }
    return search.drives();
}
