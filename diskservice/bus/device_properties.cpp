#include "diskservice/bus/device_properties.h"

#include "diskservice/source/device_text.h"

#include <QDBusObjectPath>
#include <QStringList>

#include <string_view>

const QString kDevicesPath = QStringLiteral("/org/freedesktop/UDisks/devices");

namespace {

// Type t, whichever of the machine's types has 64 bits.
QVariant bus_size(std::uint64_t value)
{
    return QVariant::fromValue<qulonglong>(value);
}

QStringList printable_texts(const std::vector<std::string>& list)
{
    QStringList texts;
    for (const std::string& bytes : list) {
        texts += printable_text(bytes);
    }
    return texts;
}

QVariantMap general_properties(const DeviceRecord& device)
{
    const QString deviceFile = printable_text(device.deviceFile);
    return {
        {"DeviceFile", deviceFile},
        {"DeviceFilePresentation", deviceFile},
        {"DeviceIsDrive", !device.place.has_value()},
        {"DeviceIsPartition", device.place.has_value()},
        {"DeviceIsPartitionTable", device.table.has_value()},
        {"DeviceIsOpticalDisc", device.isOpticalDisc},
        {"DeviceIsRemovable", device.isRemovable},
        {"DeviceIsMediaAvailable", device.sizeBytes != 0},
        {"DeviceIsReadOnly", device.isReadOnly},
        {"DeviceIsSystemInternal", device.isSystemInternal},
        {"DeviceIsMounted", !device.mountPaths.empty()},
        {"DeviceMountPaths", printable_texts(device.mountPaths)},
        {"DeviceSize", bus_size(device.sizeBytes)},
        {"DeviceBlockSize", bus_size(device.blockSizeBytes)},
        // An addition to version 1; the kernel counts from 1.
        {"DeviceDiskSequence", bus_size(device.diskSequence.value_or(0))},
    };
}

QVariantMap content_properties(const Content& content)
{
    return {
        {"IdUsage", device_text(content.usage)},     {"IdType", device_text(content.type)},
        {"IdVersion", device_text(content.version)}, {"IdUuid", device_text(content.uuid)},
        {"IdLabel", device_text(content.label)},
    };
}

QVariantMap partition_properties(const PartitionPlace& place)
{
    const QString slave =
        place.driveDeviceFile.empty() ? QStringLiteral("/") : object_path(place.driveDeviceFile);
    return {
        {"PartitionSlave", QVariant::fromValue(QDBusObjectPath(slave))},
        {"PartitionScheme", device_text(place.entry.scheme)},
        {"PartitionType", device_text(place.entry.type)},
        {"PartitionLabel", device_text(place.entry.label)},
        {"PartitionUuid", device_text(place.entry.uuid)},
        {"PartitionNumber", place.entry.number},
        {"PartitionOffset", bus_size(place.entry.offsetBytes)},
        {"PartitionSize", bus_size(place.entry.sizeBytes)},
    };
}

QVariantMap drive_properties(const DeviceRecord& device)
{
    const PartitionTable table = device.table.value_or(PartitionTable());
    return {
        {"PartitionTableScheme", device_text(table.scheme)},
        {"PartitionTableCount", static_cast<int>(table.entries.size())},
        {"DriveVendor", device_text(device.identity.vendor)},
        {"DriveModel", device_text(device.identity.model)},
        {"DriveSerial", device_text(device.identity.serial)},
        {"DriveRevision", device_text(device.identity.revision)},
        {"DriveConnectionInterface", device_text(device.identity.connectionInterface)},
    };
}

bool is_ascii_letter_or_digit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

} // namespace

QString object_path(const std::string& deviceFile)
{
    constexpr std::string_view kDeviceFolder = "/dev/";
    constexpr std::string_view kHexDigits = "0123456789abcdef";
    std::string_view rest = deviceFile;
    rest.remove_prefix(rest.starts_with(kDeviceFolder) ? kDeviceFolder.size()
                                                       : rest.rfind('/') + 1);
    std::string name;
    for (const char c : rest) {
        const auto byte = static_cast<unsigned char>(c);
        if (is_ascii_letter_or_digit(c)) {
            name += c;
        } else {
            name += {'_', kHexDigits[byte >> 4U], kHexDigits[byte & 0xFU]};
        }
    }
    return kDevicesPath + '/' + QString::fromStdString(name);
}

QVariantMap device_properties(const DeviceRecord& device)
{
    QVariantMap properties = general_properties(device);
    properties.insert(content_properties(device.content));
    properties.insert(partition_properties(device.place.value_or(PartitionPlace())));
    properties.insert(drive_properties(device));
    return properties;
}
