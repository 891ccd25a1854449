#pragma once

#include "diskservice/content_probe.h"
#include "diskservice/device_record.h"
#include "diskservice/options.h"

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The source of devices that are image files: each image is a drive, and the partitions
/// that libblkid finds inside it are devices of their own. Their device files ("/x/a.img1")
/// are names only; no such file exists.
///
/// An image that is missing or no regular file is left out; one whose contents cannot be
/// read is still a drive of its size. Both are told on standard error, once for as long as
/// the trouble lasts.
class ImageSource {
public:
    explicit ImageSource(std::vector<ImageOption> images) : images_(std::move(images)) {}

    /// All devices as the images are now.
    std::vector<DeviceRecord> operator()();

private:
    void appendDevices(std::vector<DeviceRecord>& devices, const ImageOption& image);
    void readContents(DeviceRecord& drive, int descriptor);
    void appendPartitions(std::vector<DeviceRecord>& devices, std::size_t driveIndex,
                          int descriptor);
    Content contentOf(const std::string& deviceFile, const ProbeRange& range);
    void note(const std::string& deviceFile, const std::string& problem);

    std::vector<ImageOption> images_;
    std::set<std::string> problems_; ///< Met in the latest look at the images.
};
