#pragma once

#include <string>
#include <vector>

/// Why drives may be missing or cannot be used, one sentence each with what a person can do:
/// controllers that no driver runs or that hide drives, and drives that the kernel knows but
/// cannot use. Each begins with the device's address or file. Only attributes of root/sys are
/// read (an empty root is the machine itself); no drive is opened or woken.
std::vector<std::string> missing_drives(const std::string& root);
