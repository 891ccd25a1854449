#pragma once

#include <string>
#include <vector>

/// A mountable file system as the disk service reports it: a plain value. The operations
/// are calls to the disk service; a failure is a log line and a false result.
class FileSystem {
public:
    /// The disk service's object path of the device, not its device node.
    [[nodiscard]] const std::string& devicePath() const { return devicePath_; }
    void setDevicePath(const std::string& devicePath) { devicePath_ = devicePath; }

    /// As the service reports it, such as "vfat".
    [[nodiscard]] const std::string& type() const { return type_; }
    void setType(const std::string& type) { type_ = type; }

    /// May be empty.
    [[nodiscard]] const std::string& label() const { return label_; }
    void setLabel(const std::string& label) { label_ = label; }

    /// The directory where it is mounted; empty when it is not.
    [[nodiscard]] const std::string& mountPath() const { return mountPath_; }

    /// Mounts it and records the directory. The user interface stays alive meanwhile.
    [[nodiscard]] bool mount();
    [[nodiscard]] bool umount();

    /// Asks the service where it is mounted. Of several directories the first one counts.
    void updateMountPath();

private:
    std::string devicePath_;
    std::string type_;
    std::string label_;
    std::string mountPath_;
};

/// Lists all file systems of this computer, ascending by device path. Failures become log
/// lines and a shorter list.
[[nodiscard]] std::vector<FileSystem> get_filesystems();
