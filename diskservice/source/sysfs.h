#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

// Attributes of sysfs: small files that hold one value (sysfs(5)). One that is missing or
// cannot be read is empty or 0: most of them exist for some kinds of device only.

/// What sysfs counts starts and sizes in, whatever the sectors are.
constexpr std::uint64_t kSysfsUnitBytes = 512;

inline std::string first_line(const std::filesystem::path& attribute)
{
    std::string line;
    std::ifstream file(attribute);
    std::getline(file, line);
    line.erase(line.find_last_not_of(" \t\n") + 1);
    return line;
}

inline std::uint64_t number_in(const std::filesystem::path& attribute)
{
    std::uint64_t number = 0;
    std::ifstream file(attribute);
    file >> number;
    return number;
}
