#include "storage/disk_service.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>

namespace disk_service {
namespace {

const char* const kService = "org.freedesktop.UDisks";
const char* const kServicePath = "/org/freedesktop/UDisks";
const char* const kDeviceInterface = "org.freedesktop.UDisks.Device";
const char* const kPropertiesInterface = "org.freedesktop.DBus.Properties";
const char* const kConnectionName = "vantrelle-disk-service";

// The toolkit's own system-bus connection stays broken for the whole run when the bus was
// not there at the first call or went away; this one is made anew, so that restarting the
// discovery helps.
QDBusConnection system_bus()
{
    const QString name = QString::fromLatin1(kConnectionName);
    QDBusConnection bus(name);
    if (bus.isConnected()) {
        return bus;
    }
    QDBusConnection::disconnectFromBus(name);
    return QDBusConnection::connectToBus(QDBusConnection::SystemBus, name);
}

QDBusMessage call(const QString& path, const char* interface, const char* method,
                  const QVariantList& arguments = {})
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(QString::fromLatin1(kService), path,
                                       QString::fromLatin1(interface), QString::fromLatin1(method));
    message.setArguments(arguments);
    return system_bus().call(message);
}

void register_reply_type()
{
    static const int type = [] {
        qDBusRegisterMetaType<QList<QDBusObjectPath>>();
        return qRegisterMetaType<QList<QDBusObjectPath>>("QList<QDBusObjectPath>");
    }();
    Q_UNUSED(type);
}

} // namespace

QDBusReply<QList<QDBusObjectPath>> enumerate_devices()
{
    register_reply_type();
    return call(QString::fromLatin1(kServicePath), kService, "EnumerateDevices");
}

DeviceProperties device_properties(const QString& devicePath)
{
    const QDBusMessage reply =
        call(devicePath, kPropertiesInterface, "GetAll", {QString::fromLatin1(kDeviceInterface)});
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return {QDBusError(reply), {}};
    }
    if (reply.signature() != QLatin1String("a{sv}")) {
        return {};
    }
    return {{}, qdbus_cast<QVariantMap>(reply.arguments().constFirst())};
}

} // namespace disk_service
