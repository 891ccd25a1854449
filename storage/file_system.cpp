#include "storage/file_system.h"

#include "app/base/debug_log.h"
#include "storage/disk_service.h"

#include <QDBusError>
#include <QStringList>

#include <algorithm>
#include <optional>

namespace {

const char* const DBG_MODULE = "FileSystems";

std::string to_bytes(const QVariant& text)
{
    return text.toString().toLatin1().toStdString();
}

void log_failed_call(const QDBusMessage& reply)
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": " << reply.errorMessage() << Qt::endl;
}

void log_file_system(const FileSystem& fileSystem)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": device: " << fileSystem.devicePath() << "\n  type: " << fileSystem.type()
        << "\n  label: " << fileSystem.label() << "\n  mountPath: " << fileSystem.mountPath()
        << Qt::endl;
}

std::optional<FileSystem> read_file_system(const QString& devicePath)
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": *** devicePath: " << devicePath << " ***" << Qt::endl;
    const auto [error, properties] = disk_service::device_properties(devicePath);
    if (error.isValid()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": GetAll failed: " << error.message() << Qt::endl;
        return std::nullopt;
    }
    if (properties.value(QStringLiteral("IdUsage")).toString() != QLatin1String("filesystem")) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": not a filesystem (skip)" << Qt::endl;
        return std::nullopt;
    }
    FileSystem fileSystem;
    fileSystem.setDevicePath(to_bytes(devicePath));
    fileSystem.setType(to_bytes(properties.value(QStringLiteral("IdType"))));
    fileSystem.setLabel(to_bytes(properties.value(QStringLiteral("IdLabel"))));
    fileSystem.updateMountPath();
    log_file_system(fileSystem);
    return fileSystem;
}

} // namespace

bool FileSystem::mount()
{
    // The service finds out the type; no mount options.
    const QDBusMessage reply = disk_service::call_device_alive(
        QString::fromStdString(devicePath_), "FilesystemMount", {QString(), QStringList()});
    if (reply.type() == QDBusMessage::ErrorMessage) {
        log_failed_call(reply);
        return false;
    }
    const std::string mountPath = to_bytes(reply.arguments().value(0));
    if (mountPath.empty()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": empty mount path" << Qt::endl;
        return false;
    }
    mountPath_ = mountPath;
    return true;
}

bool FileSystem::umount()
{
    const QDBusMessage reply = disk_service::call_device_alive(
        QString::fromStdString(devicePath_), "FilesystemUnmount", {QStringList()});
    if (reply.type() == QDBusMessage::ErrorMessage) {
        log_failed_call(reply);
        return false;
    }
    mountPath_.clear();
    return true;
}

void FileSystem::updateMountPath()
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": updateMountPath: devicePath: " << devicePath_ << Qt::endl;
    mountPath_.clear();
    const QStringList paths =
        disk_service::device_property(QString::fromStdString(devicePath_), "DeviceMountPaths")
            .toStringList();
    if (!paths.isEmpty()) {
        mountPath_ = to_bytes(paths.constFirst());
    }
}

std::vector<FileSystem> get_filesystems()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": get_filesystems()" << Qt::endl;
    std::vector<FileSystem> fileSystems;
    const QDBusReply<QList<QDBusObjectPath>> devices = disk_service::enumerate_devices();
    if (!devices.isValid()) {
        dbg_ostream(DBG_MODULE, __LINE__)
            << ": EnumerateDevices failed: " << devices.error().message() << Qt::endl;
        return fileSystems;
    }
    for (const QDBusObjectPath& device : devices.value()) {
        if (const auto fileSystem = read_file_system(device.path())) {
            fileSystems.push_back(*fileSystem);
        }
    }
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": " << fileSystems.size() << " filesystems found" << Qt::endl;
    std::sort(fileSystems.begin(), fileSystems.end(),
              [](const auto& a, const auto& b) { return a.devicePath() < b.devicePath(); });
    return fileSystems;
}
