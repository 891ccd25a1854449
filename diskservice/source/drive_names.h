#pragma once

#include "diskservice/source/kernel_devices.h"

#include <map>
#include <string>
#include <vector>

/// The first name (in sysfs) of each drive, by every name that it has; most have only one, but a
/// drive that two cables lead to has two. Two names are one drive only if a SAS, Fibre Channel or
/// NVMe transport shows the same logical-unit name of its own for both (the attribute `wwid` in
/// sysfs, "naa." or "eui."), and serial number, model and size are the same, too: cheap drives
/// share all of these, and a drive must not go missing on a guess. A SATA drive on such a
/// transport has one port and one name.
std::map<std::string, std::string> first_names(const std::vector<KernelDevice>& drives);
