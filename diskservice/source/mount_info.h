#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// A line of the kernel's mount table (proc(5), mountinfo).
struct MountEntry {
    std::string path;
    std::string type;
    std::string source;  ///< A device file, or whatever the mounting program wrote.
    std::string options; ///< Those of the file system.
    dev_t number = 0;    ///< Its major number is 0 for a file system without one device.
};

/// What is mounted where, the oldest mount first, from root/proc; without it nothing.
std::vector<MountEntry> read_mount_info(const std::string& root);
