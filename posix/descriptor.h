#pragma once

#include <unistd.h>

#include <utility>

/// An open file descriptor, or a negative number when it could not be opened; closed on
/// every way out.
class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;

    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_;
};
