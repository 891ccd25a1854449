#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

/// A block device as the kernel shows it in sysfs, with what udev knows of it.
struct KernelDevice {
    std::filesystem::path folder; ///< In sysfs, symbolic links resolved.
    std::map<std::string, std::string> properties;

    [[nodiscard]] std::string name() const { return folder.filename().string(); }
    [[nodiscard]] std::string deviceFile() const;
    [[nodiscard]] bool isPartition() const;
    /// Whether an object of the kernel whose name begins so stands above it ("usb" for "usb1").
    [[nodiscard]] bool isBelow(const std::string& object) const;
    /// Empty when udev does not know it.
    [[nodiscard]] std::string property(const std::string& name) const;
};

/// Every block device, in the order of the names. With a root they are those of root/sys as
/// the kernel describes them; udev is asked only without one. Throws std::runtime_error.
std::vector<KernelDevice> kernel_devices(const std::string& root);

/// Why a whole device is none of the drives to list; empty when it is one.
std::string reason_for_no_drive(const KernelDevice& device);

/// Text of one of udev's "_ENC" properties: \xHH stands for a byte (udev's own
/// encoding), zero bytes and surrounding blanks are dropped.
std::string decode_udev_text(const std::string& encoded);
