#pragma once

#include "diskservice/source/content_probe.h"
#include "posix/descriptor.h"

#include <string>

/// A loop device (loop(4)) that the kernel frees by itself as soon as it is neither open
/// nor mounted, whatever becomes of this process.
struct LoopDevice {
    Descriptor descriptor;
    std::string path;
};

/// Makes the range of an open image file a block device. Throws std::system_error.
LoopDevice attach_loop_device(const ProbeRange& range, bool isReadOnly);
