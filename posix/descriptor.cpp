#include "posix/descriptor.h"

#include <unistd.h>

Descriptor::~Descriptor()
{
    if (descriptor_ >= 0) {
        ::close(descriptor_);
    }
}

std::string Descriptor::procName() const
{
    return "/proc/self/fd/" + std::to_string(descriptor_);
}
