#pragma once

#include "diskservice/source/content_probe.h"
#include "diskservice/source/device_record.h"
#include "diskservice/source/notices.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// An image file that is served as a drive.
struct ImageOption {
    std::string path; ///< Absolute; symbolic links are kept.
    std::string model;
    std::string serial;
    std::uint32_t sectorSizeBytes = 512;
    bool isOptical = false;
};

/// What the device files of an image's partitions begin with, before the number. It is the
/// kernel's rule: "sda1", but "nvme0n1p1" after a digit.
std::string partition_stem(const std::string& image);

/// A place in an image file.
struct ImageRange {
    std::string path;
    std::uint64_t offsetBytes = 0;
};

/// Where a device of ImageSource lies: its image, and the partition's start in it.
ImageRange image_range(const DeviceRecord& device);

/// The source of devices that are image files: each image is a drive, and the partitions
/// that libblkid finds inside it are devices of their own. Their device files ("/x/a.img1")
/// are names only; no such file exists.
///
/// An image that is missing, no regular file or below /dev is left out; one whose contents
/// cannot be read is still a drive of its size. Both are told on standard error, once for as
/// long as the trouble lasts.
///
/// The contents of an image are read again only when its file has changed since, going by
/// its status-change time (stat(2)), which every write sets and nobody can set back.
class ImageSource {
public:
    explicit ImageSource(std::vector<ImageOption> images) : images_(std::move(images)) {}

    /// All devices as the images are now.
    std::vector<DeviceRecord> operator()();

private:
    /// Which file it was, and in which state.
    using Stamp = std::tuple<dev_t, ino_t, off_t, time_t, long>;
    struct Remembered {
        Stamp stamp;
        std::vector<DeviceRecord> devices;
    };

    std::vector<DeviceRecord> devicesOf(const ImageOption& image);
    std::vector<DeviceRecord> readDevices(const ImageOption& image, const struct stat& status);
    void readContents(DeviceRecord& drive, int descriptor);
    std::vector<DeviceRecord> readPartitions(const DeviceRecord& drive, int descriptor);
    Content contentOf(const std::string& deviceFile, const ProbeRange& range);
    void note(const std::string& deviceFile, const std::string& problem);

    std::vector<ImageOption> images_;
    std::map<std::string, Remembered> remembered_; ///< By the image's path.
    Notices notices_;
};
