#pragma once

#include "diskservice/source/device_record.h"
#include "posix/descriptor.h"

#include <string>

/// Why the file of this name is not the device's node; empty when it is, and when there is no
/// file. A program that writes to a drive that has gone leaves a regular file under its name.
/// Below a root, which only tests have, a file with the sticky bit is a block device's node.
std::string reason_for_no_node(const std::string& root, const DeviceRecord& device);

/// Opens the device's node for reading, with the further flags of open(2). Not open, with errno
/// set, when that fails or the file is not the device's node.
Descriptor open_node(const std::string& root, const DeviceRecord& device, int flags);
