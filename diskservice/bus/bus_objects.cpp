#include "diskservice/bus/bus_objects.h"

#include "diskservice/bus/device_properties.h"
#include "diskservice/mount/mount_table.h"
#include "diskservice/source/device_text.h"

#include <QDBusError>
#include <QDBusMetaType>
#include <QDBusObjectPath>

#include <utility>

const QString BusObjects::kBusName = QStringLiteral("org.freedesktop.UDisks");
const QString BusObjects::kPath = QStringLiteral("/org/freedesktop/UDisks");

namespace {

const QString kServiceInterface = QStringLiteral("org.freedesktop.UDisks");
const QString kDeviceInterface = QStringLiteral("org.freedesktop.UDisks.Device");
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString kIntrospectionInterface = QStringLiteral("org.freedesktop.DBus.Introspectable");

const QString kServiceMembers = QStringLiteral(R"(    <method name="EnumerateDevices">
      <arg name="devices" type="ao" direction="out"/>
    </method>
    <signal name="DeviceAdded"><arg name="device" type="o"/></signal>
    <signal name="DeviceRemoved"><arg name="device" type="o"/></signal>
    <signal name="DeviceChanged"><arg name="device" type="o"/></signal>
)");

const QString kDeviceMembers = QStringLiteral(R"(    <method name="FilesystemMount">
      <arg name="filesystem_type" type="s" direction="in"/>
      <arg name="options" type="as" direction="in"/>
      <arg name="mount_path" type="s" direction="out"/>
    </method>
    <method name="FilesystemUnmount">
      <arg name="options" type="as" direction="in"/>
    </method>
)");

// Changes are told by the signals above, never by PropertiesChanged.
const QString kNoChangeSignal = QStringLiteral(
    R"(    <annotation name="org.freedesktop.DBus.Property.EmitsChangedSignal" value="false"/>
)");

// The interface argument of a call may be left out.
bool is_call_of(const QDBusMessage& call, const QString& interface, const QString& member)
{
    return (call.interface() == interface || call.interface().isEmpty()) && call.member() == member;
}

QDBusMessage wrong_arguments(const QDBusMessage& call)
{
    return call.createErrorReply(QDBusError::InvalidArgs,
                                 call.member() + ": wrong arguments (" + call.signature() + ')');
}

QDBusMessage unknown_interface(const QDBusMessage& call, const QString& interface)
{
    return call.createErrorReply(QDBusError::UnknownInterface,
                                 call.path() + " has no interface " + interface);
}

QString property_elements(const QVariantMap& properties)
{
    QString xml;
    for (auto it = properties.cbegin(); it != properties.cend(); ++it) {
        xml += "    <property name=\"" + it.key() + "\" type=\"" +
               QDBusMetaType::typeToSignature(it.value().metaType()) + "\" access=\"read\"/>\n";
    }
    return xml;
}

void announce(const QDBusConnection& bus, const QString& signal, const QString& devicePath)
{
    QDBusMessage message = QDBusMessage::createSignal(BusObjects::kPath, kServiceInterface, signal);
    message << QVariant::fromValue(QDBusObjectPath(devicePath));
    bus.send(message);
}

void announce_changes(const QDBusConnection& bus, const QMap<QString, DeviceRecord>& before,
                      const QMap<QString, DeviceRecord>& now)
{
    for (const QString& path : before.keys()) {
        if (!now.contains(path)) {
            announce(bus, "DeviceRemoved", path);
        }
    }
    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        if (!before.contains(it.key())) {
            announce(bus, "DeviceAdded", it.key());
        } else if (device_properties(before.value(it.key())) != device_properties(it.value())) {
            announce(bus, "DeviceChanged", it.key());
        }
    }
}

} // namespace

BusObjects::BusObjects(DeviceSource source, const std::string& root)
    : source_(std::move(source)), root_(root), mounter_(root), snapshot_(takeSnapshot())
{
}

// Qt adds the frame and the standard interfaces.
QString BusObjects::introspect(const QString& path) const
{
    QString xml;
    if (const QString interface = interfaceOf(path); !interface.isEmpty()) {
        xml += "  <interface name=\"" + interface + "\">\n" +
               (path == kPath ? kServiceMembers : kDeviceMembers) +
               property_elements(propertiesOf(path)) + kNoChangeSignal + "  </interface>\n";
    }
    if (path == kPath) {
        xml += "  <node name=\"devices\"/>\n";
    }
    if (path == kDevicesPath) {
        for (const QString& device : snapshot_.keys()) {
            xml += "  <node name=\"" + device.mid(kDevicesPath.size() + 1) + "\"/>\n";
        }
    }
    return xml;
}

bool BusObjects::handleMessage(const QDBusMessage& call, const QDBusConnection& bus)
{
    if (isObject(call.path()) && is_call_of(call, kIntrospectionInterface, "Introspect")) {
        return false; // Qt answers, through introspect().
    }
    const QDBusMessage reply = answer(call, bus);
    if (call.isReplyRequired()) {
        bus.send(reply);
    }
    return true;
}

void BusObjects::refresh(const QDBusConnection& bus)
{
    const Snapshot before = std::exchange(snapshot_, takeSnapshot());
    announce_changes(bus, before, snapshot_);
}

BusObjects::Snapshot BusObjects::takeSnapshot() const
{
    Snapshot snapshot;
    const MountTable mountTable(root_);
    for (DeviceRecord& device : source_()) {
        device.mountPaths = mountTable.pathsOf(device);
        snapshot.insert(object_path(device.deviceFile), device);
    }
    return snapshot;
}

bool BusObjects::isObject(const QString& path) const
{
    return path == kPath || path == kDevicesPath || snapshot_.contains(path);
}

QString BusObjects::interfaceOf(const QString& path) const
{
    if (path == kPath) {
        return kServiceInterface;
    }
    return snapshot_.contains(path) ? kDeviceInterface : QString();
}

QVariantMap BusObjects::propertiesOf(const QString& path) const
{
    if (path == kPath) {
        return {{"DaemonVersion", QStringLiteral(VANTRELLE_VERSION)}};
    }
    return snapshot_.contains(path) ? device_properties(snapshot_.value(path)) : QVariantMap();
}

QDBusMessage BusObjects::answer(const QDBusMessage& call, const QDBusConnection& bus)
{
    const QString path = call.path();
    if (!isObject(path)) {
        return call.createErrorReply(QDBusError::UnknownObject, "no such object: " + path);
    }
    for (const char* member : {"Get", "GetAll", "Set"}) {
        if (is_call_of(call, kPropertiesInterface, member)) {
            return answerProperties(call);
        }
    }
    if (path == kPath && is_call_of(call, kServiceInterface, "EnumerateDevices")) {
        return enumerateDevices(call, bus);
    }
    for (const char* member : {"FilesystemMount", "FilesystemUnmount"}) {
        if (snapshot_.contains(path) && is_call_of(call, kDeviceInterface, member)) {
            return answerDevice(call, bus);
        }
    }
    const QString interface = call.interface();
    if (!interface.isEmpty() && interface != interfaceOf(path) &&
        interface != kPropertiesInterface && interface != kIntrospectionInterface) {
        return unknown_interface(call, interface);
    }
    return call.createErrorReply(QDBusError::UnknownMethod, "no such method: " + call.member());
}

QDBusMessage BusObjects::answerProperties(const QDBusMessage& call) const
{
    static const QMap<QString, QString> kSignatures{{"Get", "ss"}, {"GetAll", "s"}, {"Set", "ssv"}};
    if (call.signature() != kSignatures.value(call.member())) {
        return wrong_arguments(call);
    }
    const QString interface = call.arguments().at(0).toString();
    // An empty interface name stands for any.
    if (!interface.isEmpty() && interface != interfaceOf(call.path())) {
        return unknown_interface(call, interface);
    }
    const QVariantMap properties = propertiesOf(call.path());
    if (call.member() == "GetAll") {
        return call.createReply(properties);
    }
    const QString name = call.arguments().at(1).toString();
    if (!properties.contains(name)) {
        return call.createErrorReply(QDBusError::UnknownProperty, "no such property: " + name);
    }
    if (call.member() == "Set") {
        return call.createErrorReply(QDBusError::PropertyReadOnly, "read-only: " + name);
    }
    return call.createReply(QVariant::fromValue(QDBusVariant(properties.value(name))));
}

QDBusMessage BusObjects::enumerateDevices(const QDBusMessage& call, const QDBusConnection& bus)
{
    if (!call.signature().isEmpty()) {
        return wrong_arguments(call);
    }
    refresh(bus);
    QList<QDBusObjectPath> paths;
    for (const QString& path : snapshot_.keys()) {
        paths += QDBusObjectPath(path);
    }
    return call.createReply(QVariant::fromValue(paths));
}

QDBusMessage BusObjects::answerDevice(const QDBusMessage& call, const QDBusConnection& bus)
{
    static const QMap<QString, QString> kSignatures{{"FilesystemMount", "sas"},
                                                    {"FilesystemUnmount", "as"}};
    if (call.signature() != kSignatures.value(call.member())) {
        return wrong_arguments(call);
    }
    const QDBusMessage reply = mountOrUnmount(call);
    // Also after a failure, whose reason may be a mount that another program made.
    DeviceRecord& device = snapshot_[call.path()];
    std::vector<std::string> paths = MountTable(root_).pathsOf(device);
    if (std::exchange(device.mountPaths, paths) != paths) {
        announce(bus, "DeviceChanged", call.path());
    }
    return reply;
}

QDBusMessage BusObjects::mountOrUnmount(const QDBusMessage& call)
{
    const DeviceRecord device = snapshot_.value(call.path());
    const QList<QVariant> arguments = call.arguments();
    const QStringList options = arguments.last().toStringList();
    try {
        if (call.member() == "FilesystemMount") {
            const QString type = arguments.first().toString();
            return call.createReply(printable_text(mounter_.mount(device, type, options)));
        }
        mounter_.unmount(device, options);
        return call.createReply();
    } catch (const MountFailure& failure) {
        return call.createErrorReply(failure.name(),
                                     printable_text(device.deviceFile + ": " + failure.what()));
    }
}
