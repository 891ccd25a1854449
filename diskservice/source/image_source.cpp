#include "diskservice/source/image_source.h"

#include "posix/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

std::string system_text(const std::string& action)
{
    return action + ": " + std::generic_category().message(errno);
}

DeviceRecord drive_record(const ImageOption& image, const struct stat& status)
{
    DeviceRecord drive;
    drive.deviceFile = image.path;
    drive.sizeBytes = static_cast<std::uint64_t>(status.st_size);
    drive.blockSizeBytes = image.sectorSizeBytes;
    drive.isOpticalDisc = image.isOptical;
    drive.isRemovable = image.isOptical;
    drive.isReadOnly = image.isOptical || ::access(image.path.c_str(), W_OK) != 0;
    drive.identity.model = image.model;
    drive.identity.serial = image.serial;
    drive.identity.connectionInterface = "virtual";
    return drive;
}

DeviceRecord partition_record(const DeviceRecord& drive, const PartitionEntry& entry)
{
    // The kernel gives an extended partition room for a boot loader, not its contents.
    constexpr std::uint64_t kExtendedBytes = 1024;
    DeviceRecord partition;
    partition.deviceFile = partition_stem(drive.deviceFile) + std::to_string(entry.number);
    partition.sizeBytes = entry.sizeBytes;
    if (entry.isExtended) {
        partition.sizeBytes = std::min<std::uint64_t>(
            entry.sizeBytes, std::max<std::uint64_t>(kExtendedBytes, drive.blockSizeBytes));
    }
    partition.blockSizeBytes = drive.blockSizeBytes;
    partition.isRemovable = drive.isRemovable;
    partition.isReadOnly = drive.isReadOnly;
    partition.place = PartitionPlace{drive.deviceFile, entry};
    return partition;
}

// Whether any later write is sure to get another status-change time. Two writes in quick
// succession can share one; the coarsest file system in use (FAT) counts in 2 seconds.
bool is_settled(const struct stat& status)
{
    constexpr time_t kSettledSeconds = 3;
    return status.st_ctim.tv_sec + kSettledSeconds < std::time(nullptr);
}

// Such a file is what a program has left that wrote to a drive which had gone. /dev/shm is for
// files.
bool is_below_dev(const std::string& path)
{
    std::error_code ignored;
    const std::string file = std::filesystem::canonical(path, ignored).string();
    return file.starts_with("/dev/") && !file.starts_with("/dev/shm/");
}

} // namespace

std::string partition_stem(const std::string& image)
{
    const bool endsInDigit = image.back() >= '0' && image.back() <= '9';
    return endsInDigit ? image + 'p' : image;
}

ImageRange image_range(const DeviceRecord& device)
{
    return device.place ? ImageRange{device.place->driveDeviceFile, device.place->entry.offsetBytes}
                        : ImageRange{device.deviceFile, 0};
}

std::vector<DeviceRecord> ImageSource::operator()()
{
    std::vector<DeviceRecord> devices;
    for (const ImageOption& image : images_) {
        std::ranges::move(devicesOf(image), std::back_inserter(devices));
    }
    notices_.tell();
    return devices;
}

std::vector<DeviceRecord> ImageSource::devicesOf(const ImageOption& image)
{
    struct stat status = {};
    if (::stat(image.path.c_str(), &status) != 0) {
        note(image.path, system_text("stat"));
        return {};
    }
    // Checked before it is opened: opening some kinds of file does something to them.
    if (!S_ISREG(status.st_mode)) {
        note(image.path, "not a regular file");
        return {};
    }
    if (is_below_dev(image.path)) {
        note(image.path, "a regular file below /dev is neither a drive nor an image");
        return {};
    }
    const Stamp stamp{status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec,
                      status.st_ctim.tv_nsec};
    const auto known = remembered_.find(image.path);
    if (known != remembered_.end() && known->second.stamp == stamp) {
        return known->second.devices;
    }

    const std::size_t problemsBefore = notices_.count();
    std::vector<DeviceRecord> devices = readDevices(image, status);
    if (notices_.count() == problemsBefore && is_settled(status)) {
        remembered_[image.path] = {stamp, devices};
    }
    return devices;
}

std::vector<DeviceRecord> ImageSource::readDevices(const ImageOption& image,
                                                   const struct stat& status)
{
    std::vector<DeviceRecord> devices{drive_record(image, status)};
    if (status.st_size == 0) {
        return devices;
    }
    const Descriptor descriptor(::open(image.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (descriptor.get() < 0) {
        note(image.path, system_text("open"));
        return devices;
    }
    readContents(devices.front(), descriptor.get());
    if (devices.front().table) {
        std::ranges::move(readPartitions(devices.front(), descriptor.get()),
                          std::back_inserter(devices));
    }
    return devices;
}

void ImageSource::readContents(DeviceRecord& drive, int descriptor)
{
    const ProbeRange whole{descriptor, 0, drive.sizeBytes, drive.blockSizeBytes};
    try {
        // The kernel makes no partitions on an optical disc.
        if (!drive.isOpticalDisc) {
            drive.table = probe_partition_table(whole);
        }
    } catch (const ProbeFailure& failure) {
        note(drive.deviceFile, failure.what());
    }
    // A table without partitions may be the zeros of a file system's boot sector. Beside one
    // with partitions, what is left of an older file system means nothing.
    if (!drive.table || drive.table->entries.empty()) {
        drive.content = contentOf(drive.deviceFile, whole);
    }
}

std::vector<DeviceRecord> ImageSource::readPartitions(const DeviceRecord& drive, int descriptor)
{
    std::vector<DeviceRecord> partitions;
    for (const PartitionEntry& entry : drive.table->entries) {
        DeviceRecord partition = partition_record(drive, entry);
        if (!entry.isExtended) {
            partition.content =
                contentOf(partition.deviceFile,
                          {descriptor, entry.offsetBytes, entry.sizeBytes, drive.blockSizeBytes});
        }
        partitions.push_back(std::move(partition));
    }
    return partitions;
}

Content ImageSource::contentOf(const std::string& deviceFile, const ProbeRange& range)
{
    try {
        return probe_content(range);
    } catch (const ProbeFailure& failure) {
        note(deviceFile, failure.what());
        return {};
    }
}

void ImageSource::note(const std::string& deviceFile, const std::string& problem)
{
    notices_.add(deviceFile + ": " + problem);
}
