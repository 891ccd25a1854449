#pragma once

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QList>
#include <QString>
#include <QVariantMap>

/// The disk service on the system bus: UDisks, version 1 interface. Every call blocks for
/// at most the bus's default reply time-out.
namespace disk_service {

/// All devices that the service knows, in its order, or the bus's error.
[[nodiscard]] QDBusReply<QList<QDBusObjectPath>> enumerate_devices();

/// The properties of one device by name. A reply that is not a map of properties counts
/// as an empty map.
struct DeviceProperties {
    QDBusError error; ///< Valid when the call failed.
    QVariantMap values;
};
[[nodiscard]] DeviceProperties device_properties(const QString& devicePath);

/// One property of a device, asked for by itself; invalid when the call failed.
[[nodiscard]] QVariant device_property(const QString& devicePath, const char* name);

/// Calls a method of a device while the user interface stays alive, and gives the reply.
[[nodiscard]] QDBusMessage call_device_alive(const QString& devicePath, const char* method,
                                             const QVariantList& arguments);

} // namespace disk_service
