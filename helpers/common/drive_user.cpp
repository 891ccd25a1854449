#include "helpers/common/drive_user.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::string number_text(dev_t number)
{
    return std::to_string(major(number)) + ':' + std::to_string(minor(number));
}

std::string first_line(const fs::path& file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

// The device's directory in sysfs and those of its partitions.
std::vector<fs::path> device_directories(dev_t number, const std::string& root)
{
    const fs::path device = root + "/sys/dev/block/" + number_text(number);
    std::vector<fs::path> directories{device};
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(device, error)) {
        if (fs::exists(entry.path() / "partition", error)) {
            directories.push_back(entry.path());
        }
    }
    return directories;
}

std::string holder_of(const fs::path& directory)
{
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory / "holders", error)) {
        return "held by " + entry.path().filename().string();
    }
    return {};
}

// "MAJOR:MINOR" of the device file that the kernel's tables name, or nothing.
std::string device_number(const std::string& path)
{
    struct stat status = {};
    return ::stat(path.c_str(), &status) == 0 && S_ISBLK(status.st_mode)
               ? number_text(status.st_rdev)
               : std::string();
}

// proc(5): "ID PARENT MAJOR:MINOR ROOT PATH ... - TYPE SOURCE ..."; the number is not the device's
// where a file system can have several.
std::string mount_of(const std::vector<std::string>& numbers, const std::string& root)
{
    std::ifstream table(root + "/proc/self/mountinfo");
    for (std::string line; std::getline(table, line);) {
        std::string id, parent, number, part, path, type, source;
        std::istringstream(line) >> id >> parent >> number >> part >> path;
        std::istringstream(line.substr(std::min(line.size(), line.find(" - ") + 3))) >> type >>
            source;
        for (const std::string& known : {number, device_number(source)}) {
            if (std::ranges::find(numbers, known) != numbers.end()) {
                return "mounted at " + path;
            }
        }
    }
    return {};
}

bool is_swap(const std::vector<std::string>& numbers, const std::string& root)
{
    std::ifstream table(root + "/proc/swaps");
    for (std::string line; std::getline(table, line);) {
        const std::string number = device_number(line.substr(0, line.find_first_of(" \t")));
        if (std::ranges::find(numbers, number) != numbers.end()) {
            return true;
        }
    }
    return false;
}

} // namespace

std::string find_drive_user(dev_t number, const std::string& root)
{
    std::vector<std::string> numbers{number_text(number)};
    for (const fs::path& directory : device_directories(number, root)) {
        if (std::string holder = holder_of(directory); !holder.empty()) {
            return holder;
        }
        if (const std::string part = first_line(directory / "dev"); !part.empty()) {
            numbers.push_back(part);
        }
    }
    return is_swap(numbers, root) ? "swap space" : mount_of(numbers, root);
}
