#pragma once

#include "diskservice/source/device_record.h"
#include "diskservice/source/kernel_devices.h"

/// What udev and, where it knows nothing, the kernel say about who the drive is.
DriveIdentity identity_of(const KernelDevice& drive);
