#pragma once

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <deque>

/// The disk service on the system bus: UDisks, version 1 interface. Every call blocks for
/// at most the bus's default reply time-out.
namespace disk_service {

/// The bus's default (libdbus, DBUS_DEFAULT_TIMEOUT_VALUE).
constexpr int kReplyTimeoutMs = 25000;

/// All devices that the service knows, in its order, or the bus's error.
[[nodiscard]] QDBusReply<QList<QDBusObjectPath>> enumerate_devices();

/// The properties of one device by name. A reply that is not a map of properties counts
/// as an empty map.
struct DeviceProperties {
    QDBusError error; ///< Valid when the call failed.
    QVariantMap values;
};
[[nodiscard]] DeviceProperties device_properties(const QString& devicePath);

/// The properties of many devices, one after the other in the order given. A few calls are
/// always on their way, as waiting for each answer before the next question takes several
/// times as long. Each has as long as if it were asked by itself, after those before it.
class PropertiesReader {
public:
    explicit PropertiesReader(const QList<QDBusObjectPath>& devices,
                              int replyTimeoutMs = kReplyTimeoutMs);

    /// The next device's properties, at most once for each device; blocks until they are there.
    [[nodiscard]] DeviceProperties next();

private:
    void askAhead();

    QList<QDBusObjectPath> devices_;
    int replyTimeoutMs_;
    qsizetype asked_ = 0;
    std::deque<QDBusPendingCall> answers_;
};

/// One property of a device, asked for by itself; invalid when the call failed.
[[nodiscard]] QVariant device_property(const QString& devicePath, const char* name);

/// Calls a method of a device while the user interface stays alive, and gives the reply.
[[nodiscard]] QDBusMessage call_device_alive(const QString& devicePath, const char* method,
                                             const QVariantList& arguments);

} // namespace disk_service
