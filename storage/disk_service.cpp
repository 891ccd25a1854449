#include "storage/disk_service.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>

namespace disk_service {
namespace {

const char* const kService = "org.freedesktop.UDisks";
const char* const kServicePath = "/org/freedesktop/UDisks";
const char* const kDeviceInterface = "org.freedesktop.UDisks.Device";
const char* const kPropertiesInterface = "org.freedesktop.DBus.Properties";
const char* const kConnectionName = "vantrelle-disk-service";

// Far fewer than the 128 unanswered calls that a system bus allows (dbus-daemon(1),
// max_replies_per_connection).
constexpr std::size_t kCallsOnTheirWay = 8;

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

QDBusMessage question(const QString& path, const char* interface, const char* method,
                      const QVariantList& arguments = {})
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(QString::fromLatin1(kService), path,
                                       QString::fromLatin1(interface), QString::fromLatin1(method));
    message.setArguments(arguments);
    return message;
}

QDBusMessage properties_question(const QString& devicePath)
{
    return question(devicePath, kPropertiesInterface, "GetAll",
                    {QString::fromLatin1(kDeviceInterface)});
}

DeviceProperties properties_answer(const QDBusMessage& reply)
{
    if (reply.type() == QDBusMessage::ErrorMessage) {
        return {QDBusError(reply), {}};
    }
    if (reply.signature() != QLatin1String("a{sv}")) {
        return {};
    }
    return {{}, qdbus_cast<QVariantMap>(reply.arguments().constFirst())};
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
    return system_bus().call(
        question(QString::fromLatin1(kServicePath), kService, "EnumerateDevices"));
}

DeviceProperties device_properties(const QString& devicePath)
{
    return properties_answer(system_bus().call(properties_question(devicePath)));
}

PropertiesReader::PropertiesReader(const QList<QDBusObjectPath>& devices, int replyTimeoutMs)
    : devices_(devices), replyTimeoutMs_(replyTimeoutMs)
{
}

DeviceProperties PropertiesReader::next()
{
    askAhead();
    QDBusPendingCall answer = answers_.front();
    answers_.pop_front();
    answer.waitForFinished();
    return properties_answer(answer.reply());
}

void PropertiesReader::askAhead()
{
    while (answers_.size() < kCallsOnTheirWay && asked_ < devices_.size()) {
        // The service answers one after the other: this one waits for those ahead of it, too.
        const int timeoutMs = replyTimeoutMs_ * static_cast<int>(answers_.size() + 1);
        answers_.push_back(
            system_bus().asyncCall(properties_question(devices_[asked_].path()), timeoutMs));
        ++asked_;
    }
}

QVariant device_property(const QString& devicePath, const char* name)
{
    const QDBusMessage reply = system_bus().call(
        question(devicePath, kPropertiesInterface, "Get",
                 {QString::fromLatin1(kDeviceInterface), QString::fromLatin1(name)}));
    return reply.arguments().value(0).value<QDBusVariant>().variant();
}

QDBusMessage call_device_alive(const QString& devicePath, const char* method,
                               const QVariantList& arguments)
{
    return system_bus().call(question(devicePath, kDeviceInterface, method, arguments),
                             QDBus::BlockWithGui);
}

} // namespace disk_service
