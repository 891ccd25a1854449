#pragma once

#include <cstdint>
#include <string>

/// Sectors with which something is wrong: how many, which is the first, and what it is.
class BadSectors {
public:
    /// `error` is the errno value, 0 when there is none.
    void add(std::uint64_t sector, int error = 0);

    [[nodiscard]] bool isEmpty() const { return count_ == 0; }
    [[nodiscard]] std::uint64_t count() const { return count_; }

    /// "first at sector S" and what follows it, and the first one's reason, if there is one.
    [[nodiscard]] std::string describeFirst(const std::string& addition = {}) const;

private:
    std::uint64_t count_ = 0;
    std::uint64_t first_ = 0;
    int error_ = 0;
};
