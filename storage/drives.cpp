#include "storage/drives.h"

#include "app/base/debug_log.h"
#include "storage/disk_service.h"

#include <algorithm>
#include <map>
#include <string>

namespace {

const char* const DBG_MODULE = "Drives";

std::string text_property(const QVariantMap& properties, const char* name)
{
    return properties.value(QLatin1String(name)).toString().toLatin1().toStdString();
}

unsigned long long number_property(const QVariantMap& properties, const char* name)
{
    return properties.value(QLatin1String(name)).toULongLong();
}

bool flag_property(const QVariantMap& properties, const char* name)
{
    return properties.value(QLatin1String(name)).toBool();
}

// The disk service's object of each drive that was listed, by its device path.
std::map<std::string, QString>& object_paths()
{
    static std::map<std::string, QString> paths;
    return paths;
}

void log_drive(const Drive& drive)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": device: " << drive.device() << "\n  model: " << drive.model()
        << "\n  serial: " << drive.serial() << "\n  sectors: " << drive.sectors()
        << "\n  sectorSize: " << drive.sectorSize() << Qt::endl;
}

std::optional<Drive> drive_from_properties(const QVariantMap& properties)
{
    if (flag_property(properties, "DeviceIsOpticalDisc")) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": optical disc (skip)" << Qt::endl;
        return std::nullopt;
    }
    const unsigned long long sizeBytes = number_property(properties, "DeviceSize");
    if (sizeBytes == 0) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": invalid size (skip)" << Qt::endl;
        return std::nullopt;
    }
    const unsigned long long sectorSize = number_property(properties, "DeviceBlockSize");
    if (sectorSize == 0) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": invalid sector size (skip)" << Qt::endl;
        return std::nullopt;
    }
    Drive drive;
    drive.setDevice(text_property(properties, "DeviceFile"));
    drive.setModel(text_property(properties, "DriveModel"));
    drive.setSerial(text_property(properties, "DriveSerial"));
    drive.setSectorSize(sectorSize);
    drive.setSectors(sizeBytes / sectorSize);
    drive.setDiskSequence(number_property(properties, "DeviceDiskSequence"));
    log_drive(drive);
    return drive;
}

// FAT is named by its variant ("FAT32"), which tells more than "VFAT".
// See "What a partition is called" in docs/odd-on-purpose.md.
std::string partition_comment(const QVariantMap& properties, const std::string& type)
{
    std::string comment = text_property(properties, "IdLabel");
    if (!comment.empty()) {
        comment += " / ";
    }
    return comment + (type == "VFAT" ? text_property(properties, "IdVersion") : type);
}

std::optional<Drive::Partition> partition_from_properties(const QVariantMap& properties)
{
    const std::string type =
        properties.value(QStringLiteral("IdType")).toString().toUpper().toLatin1().toStdString();
    if (type.empty()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": empty type (skip)" << Qt::endl;
        return std::nullopt;
    }
    Drive::Partition partition;
    partition.setDevice(text_property(properties, "DeviceFile"));
    partition.setSize(number_property(properties, "DeviceSize"));
    partition.setComment(partition_comment(properties, type));
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": partition: " << partition.device() << "\n  size: " << partition.size()
        << "\n  comment: " << partition.comment() << Qt::endl;
    return partition;
}

void add_device(const QString& devicePath, disk_service::PropertiesReader& reader,
                std::vector<Drive>& drives, std::vector<Drive::Partition>& partitions)
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": *** devicePath: " << devicePath << " ***" << Qt::endl;
    const auto [error, properties] = reader.next();
    if (error.isValid()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": GetAll failed: " << error.message() << Qt::endl;
        return;
    }
    if (flag_property(properties, "DeviceIsDrive")) {
        if (const auto drive = drive_from_properties(properties)) {
            object_paths()[drive->device()] = devicePath;
            drives.push_back(*drive);
        }
    } else if (flag_property(properties, "DeviceIsPartition")) {
        if (const auto partition = partition_from_properties(properties)) {
            partitions.push_back(*partition);
        }
    } else {
        dbg_ostream(DBG_MODULE, __LINE__) << ": not a drive or partition (skip)" << Qt::endl;
    }
}

template <typename Device>
void sort_by_device(std::vector<Device>& devices)
{
    std::sort(devices.begin(), devices.end(),
              [](const Device& a, const Device& b) { return a.device() < b.device(); });
}

// A partition belongs to every drive whose device path its own path begins with, so /dev/sda
// also gets /dev/sdaa1. See "Partitions by prefix" in docs/odd-on-purpose.md.
// In a sorted list the partitions of one drive stand together.
void attach_partitions(std::vector<Drive>& drives, std::vector<Drive::Partition> partitions)
{
    sort_by_device(partitions);
    for (Drive& drive : drives) {
        const auto first =
            std::lower_bound(partitions.cbegin(), partitions.cend(), drive.device(),
                             [](const Drive::Partition& partition, const std::string& device) {
                                 return partition.device() < device;
                             });
        const auto last = std::find_if_not(first, partitions.cend(), [&](const auto& partition) {
            return partition.device().starts_with(drive.device());
        });
        drive.setPartitions({first, last});
    }
}

} // namespace

std::vector<Drive> get_drives()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": get_drives()" << Qt::endl;
    std::vector<Drive> drives;
    const QDBusReply<QList<QDBusObjectPath>> devices = disk_service::enumerate_devices();
    if (!devices.isValid()) {
        dbg_ostream(DBG_MODULE, __LINE__)
            << ": EnumerateDevices failed: " << devices.error().message() << Qt::endl;
        return drives;
    }
    std::vector<Drive::Partition> partitions;
    disk_service::PropertiesReader reader(devices.value());
    for (const QDBusObjectPath& device : devices.value()) {
        add_device(device.path(), reader, drives, partitions);
    }
    attach_partitions(drives, std::move(partitions));
    sort_by_device(drives);
    // See "Entries of several lines" in docs/odd-on-purpose.md.
    dbg_ostream(DBG_MODULE, __LINE__) << ": " << drives.size() << " drives found" << Qt::endl;
    return drives;
}

std::optional<Drive> get_drive_again(const Drive& listed)
{
    const auto path = object_paths().find(listed.device());
    if (path == object_paths().end()) {
        return std::nullopt;
    }
    dbg_ostream(DBG_MODULE, __LINE__) << ": get_drive_again: " << path->second << Qt::endl;
    const auto [error, properties] = disk_service::device_properties(path->second);
    if (error.isValid()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": GetAll failed: " << error.message() << Qt::endl;
        return std::nullopt;
    }
    if (text_property(properties, "DeviceFile") != listed.device()) {
        return std::nullopt;
    }
    return drive_from_properties(properties);
}
