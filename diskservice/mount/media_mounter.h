#pragma once

#include "diskservice/source/device_record.h"

#include <QString>
#include <QStringList>

#include <set>
#include <stdexcept>
#include <string>
#include <utility>

/// Why a file system was not mounted or unmounted.
class MountFailure : public std::runtime_error {
public:
    /// The name is the end of one of version 1's error names, such as "Failed".
    MountFailure(const QString& name, const std::string& message)
        : std::runtime_error(message), name_("org.freedesktop.UDisks.Error." + name)
    {
    }
    [[nodiscard]] const QString& name() const { return name_; }

private:
    QString name_;
};

/// Mounts file systems of block devices and in image files below /media. What it has mounted
/// itself it unmounts when it goes; what is in use then vanishes from the directory tree at
/// once and leaves the device when it is no longer open.
class MediaMounter {
public:
    /// The root stands before the device files and /proc, as for the devices' source.
    explicit MediaMounter(std::string root) : root_(std::move(root)) {}
    ~MediaMounter();
    MediaMounter(const MediaMounter&) = delete;
    MediaMounter& operator=(const MediaMounter&) = delete;

    /// Mounts what the device holds now and gives the directory, which is made for it and
    /// named after the label, else the UUID. An empty type is the one that libblkid finds.
    /// "nosuid" and "nodev" always join the options. Throws MountFailure.
    std::string mount(const DeviceRecord& device, const QString& type, const QStringList& options);

    /// Unmounts the device from the first of its mount paths, also when another program
    /// mounted it there; no option is known. Throws MountFailure.
    void unmount(const DeviceRecord& device, const QStringList& options);

private:
    std::string root_;
    std::set<std::string> directories_; ///< Made by mount() and still mounted on.
};
