#include "diskservice/source/mount_info.h"

#include <libmount.h>

#include <memory>

namespace {

std::string text_or_empty(const char* text)
{
    return text ? text : std::string();
}

} // namespace

std::vector<MountEntry> read_mount_info(const std::string& root)
{
    const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table(
        mnt_new_table_from_file((root + "/proc/self/mountinfo").c_str()), mnt_unref_table);
    const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> iterator(
        mnt_new_iter(MNT_ITER_FORWARD), mnt_free_iter);
    std::vector<MountEntry> entries;
    libmnt_fs* mount = nullptr;
    while (table && mnt_table_next_fs(table.get(), iterator.get(), &mount) == 0) {
        entries.push_back({text_or_empty(mnt_fs_get_target(mount)),
                           text_or_empty(mnt_fs_get_fstype(mount)),
                           text_or_empty(mnt_fs_get_source(mount)),
                           text_or_empty(mnt_fs_get_fs_options(mount)), mnt_fs_get_devno(mount)});
    }
    return entries;
}
