#include "diskservice/source/kernel_devices.h"

#include "diskservice/source/sysfs.h"

#include <libudev.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <regex>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

template <typename T, T* (*Release)(T*)>
struct UdevDeleter {
    void operator()(T* object) const { Release(object); }
};
template <typename T, T* (*Release)(T*)>
using UdevPointer = std::unique_ptr<T, UdevDeleter<T, Release>>;

std::map<std::string, std::string> udev_properties(udev_device* device)
{
    std::map<std::string, std::string> properties;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_device_get_properties_list_entry(device))
    {
        const char* value = udev_list_entry_get_value(entry);
        properties[udev_list_entry_get_name(entry)] = value ? value : "";
    }
    return properties;
}

std::vector<KernelDevice> devices_of_udev()
{
    const UdevPointer<udev, udev_unref> library(udev_new());
    const UdevPointer<udev_enumerate, udev_enumerate_unref> list(
        library ? udev_enumerate_new(library.get()) : nullptr);
    if (!list || udev_enumerate_add_match_subsystem(list.get(), "block") < 0 ||
        udev_enumerate_scan_devices(list.get()) < 0) {
        throw std::runtime_error("udev: block devices: cannot be listed");
    }
    std::vector<KernelDevice> devices;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(list.get()))
    {
        const char* folder = udev_list_entry_get_name(entry);
        const UdevPointer<udev_device, udev_device_unref> device(
            udev_device_new_from_syspath(library.get(), folder));
        if (device) { // It may have gone meanwhile.
            devices.push_back({folder, udev_properties(device.get())});
        }
    }
    return devices;
}

std::map<std::string, std::string> kernel_properties(const fs::path& folder)
{
    std::map<std::string, std::string> properties;
    std::ifstream file(folder / "uevent");
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        properties[line.substr(0, equals)] =
            equals == std::string::npos ? std::string() : line.substr(equals + 1);
    }
    return properties;
}

std::vector<KernelDevice> devices_below(const std::string& root)
{
    std::vector<KernelDevice> devices;
    for (const fs::directory_entry& entry : fs::directory_iterator(root + "/sys/class/block")) {
        const fs::path folder = fs::canonical(entry.path());
        devices.push_back({folder, kernel_properties(folder)});
    }
    return devices;
}

} // namespace

std::string KernelDevice::deviceFile() const
{
    const std::string given = property("DEVNAME");
    if (!given.empty()) {
        return given.front() == '/' ? given : "/dev/" + given;
    }
    std::string file = name();
    std::ranges::replace(file, '!', '/');
    return "/dev/" + file;
}

bool KernelDevice::isPartition() const
{
    return fs::exists(folder / "partition");
}

bool KernelDevice::isBelow(const std::string& object) const
{
    return std::ranges::any_of(
        folder, [&object](const fs::path& part) { return part.string().starts_with(object); });
}

std::string KernelDevice::property(const std::string& name) const
{
    const auto found = properties.find(name);
    return found == properties.end() ? std::string() : found->second;
}

std::vector<KernelDevice> kernel_devices(const std::string& root)
{
    std::vector<KernelDevice> devices = root.empty() ? devices_of_udev() : devices_below(root);
    std::ranges::sort(devices, {}, &KernelDevice::name);
    return devices;
}

std::string reason_for_no_drive(const KernelDevice& device)
{
    // A list of what is a drive, not of what is none: the kernel also makes block devices of
    // the board's own flash memory (mtdblock0), where the firmware lives.
    static const std::regex kDrives(
        "(s|h|v|xv)d[a-z]+|sr[0-9]+|fd[0-9]+|nvme[0-9]+n[0-9]+|(mmc|msp?)"
        "blk[0-9]+|cciss!c[0-9]+d[0-9]+");
    static const std::array<std::pair<std::regex, const char*>, 6> kOthers{{
        {std::regex("loop[0-9]+"), "a loop device is no drive"},
        {std::regex("z?ram[0-9]+"), "memory is no drive"},
        {std::regex("md.*"), "an array is no drive; its members are"},
        {std::regex("dm-.*"), "a mapped device is no drive; what lies below it is"},
        {std::regex("mmcblk[0-9]+(boot|rpmb|gp).*"), "a special area of a memory card"},
        {std::regex("nvme[0-9]+c[0-9]+n[0-9]+"), "one of several ways to a drive"},
    }};
    const std::string name = device.name();
    for (const auto& [pattern, reason] : kOthers) {
        if (std::regex_match(name, pattern)) {
            return reason;
        }
    }
    if (device.folder.string().find("/devices/virtual/block/") != std::string::npos) {
        return "a virtual device is no drive";
    }
    if (first_line(device.folder / "hidden") == "1") {
        return "the kernel hides it";
    }
    return std::regex_match(name, kDrives) ? "" : "not a known kind of drive";
}

std::string decode_udev_text(const std::string& encoded)
{
    std::string text;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        unsigned char byte = static_cast<unsigned char>(encoded[i]);
        const char* digits = encoded.data() + i + 2;
        if (i + 4 <= encoded.size() && encoded.compare(i, 2, "\\x") == 0 &&
            std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
            i += 3;
        }
        if (byte != 0) {
            text += static_cast<char>(byte);
        }
    }
    const std::size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}
