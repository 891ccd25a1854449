#pragma once

#include <map>
#include <string>

/// The drives that the running system came from, by their names in sysfs, each with why: those
/// below the file systems that the system is mounted from, followed through partitions, loop
/// devices, overlays, device-mapper stacks, arrays and file systems over several drives. Reads
/// root/proc, root/sys and root/dev. A system that runs from memory came from none of them;
/// see BootMedium.
std::map<std::string, std::string> system_drives(const std::string& root);
