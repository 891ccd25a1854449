#pragma once

#include <string>
#include <utility>

/// An open file descriptor, closed at the end of its life.
class Descriptor {
public:
    /// Takes over an open descriptor; a negative number is none.
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    [[nodiscard]] int get() const { return descriptor_; }

    /// The name under which this very file can be opened again, whatever the name that the
    /// user gave means by then (proc(5)); valid in this process and in a child that
    /// inherits the descriptor.
    [[nodiscard]] std::string procName() const;

private:
    int descriptor_;
};
