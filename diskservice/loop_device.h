#pragma once

#include "diskservice/content_probe.h"
#include "diskservice/descriptor.h"

#include <string>

/// A loop device (loop(4)) that the kernel frees by itself as soon as it is neither open
/// nor mounted, whatever becomes of this process.
struct LoopDevice {
    Descriptor descriptor;
    std::string path;
};

/// Makes the range of an open image file a block device. Throws std::system_error.
LoopDevice attach_loop_device(const ProbeRange& range, bool isReadOnly);
