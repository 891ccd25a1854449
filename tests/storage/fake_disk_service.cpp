#include "tests/storage/fake_disk_service.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <algorithm>

namespace {

const char* const kConnectionName = "fake-disk-service";
const char* const kErrorName = "org.freedesktop.UDisks.Error.Failed";

QString root_path()
{
    return QStringLiteral("/org/freedesktop/UDisks");
}

QString object_path(const FakeDevice& device)
{
    return root_path() + QStringLiteral("/devices/") + device.name;
}

} // namespace

FakeDevice FakeDevice::with(const char* property, const QVariant& value) const
{
    FakeDevice changed = *this;
    if (value.isValid()) {
        changed.properties.insert(QLatin1String(property), value);
    } else {
        changed.properties.remove(QLatin1String(property));
    }
    return changed;
}

FakeDevice fake_drive(const char* name)
{
    const QString text = QString::fromLatin1(name);
    return {text,
            {{QStringLiteral("DeviceFile"), QStringLiteral("/dev/") + text},
             {QStringLiteral("DeviceIsDrive"), true},
             {QStringLiteral("DeviceIsPartition"), false},
             {QStringLiteral("DeviceIsOpticalDisc"), false},
             {QStringLiteral("DeviceSize"), qulonglong(500'000'000'000)},
             {QStringLiteral("DeviceBlockSize"), qulonglong(512)},
             {QStringLiteral("DriveModel"), QStringLiteral("Model ") + text},
             {QStringLiteral("DriveSerial"), QStringLiteral("Serial ") + text}},
            {},
            {}};
}

FakeDevice fake_partition(const char* name)
{
    const QString text = QString::fromLatin1(name);
    return {text,
            {{QStringLiteral("DeviceFile"), QStringLiteral("/dev/") + text},
             {QStringLiteral("DeviceIsDrive"), false},
             {QStringLiteral("DeviceIsPartition"), true},
             {QStringLiteral("DeviceSize"), qulonglong(1'000'000'000)},
             {QStringLiteral("IdType"), QStringLiteral("vfat")},
             {QStringLiteral("IdVersion"), QStringLiteral("FAT32")},
             {QStringLiteral("IdLabel"), QStringLiteral("DATA")}},
            {},
            {}};
}

FakeDiskService::FakeDiskService(const QString& busAddress)
{
    auto bus = QDBusConnection::connectToBus(busAddress, QString::fromLatin1(kConnectionName));
    // Before the move: it makes a child of this object.
    bus.registerVirtualObject(root_path(), this, QDBusConnection::SubPath);
    moveToThread(&thread_);
    thread_.start();
    if (!bus.registerService(QStringLiteral("org.freedesktop.UDisks"))) {
        qFatal("the fake disk service is not on the bus");
    }
}

FakeDiskService::~FakeDiskService()
{
    QDBusConnection::disconnectFromBus(QString::fromLatin1(kConnectionName));
    thread_.quit();
    thread_.wait();
}

void FakeDiskService::setDevices(const QList<FakeDevice>& devices)
{
    const QMutexLocker lock(&mutex_);
    paths_.clear();
    devices_.clear();
    for (const FakeDevice& device : devices) {
        paths_ << QDBusObjectPath(object_path(device));
        devices_.insert(object_path(device), device);
    }
}

void FakeDiskService::setEnumeration(const QString& error, const QVariant& wrongType)
{
    const QMutexLocker lock(&mutex_);
    enumerationError_ = error;
    enumerationWrongType_ = wrongType;
}

int FakeDiskService::enumerations() const
{
    const QMutexLocker lock(&mutex_);
    return enumerations_;
}

QString FakeDiskService::introspect(const QString&) const
{
    return {};
}

bool FakeDiskService::handleMessage(const QDBusMessage& message, const QDBusConnection& connection)
{
    if (message.path() == root_path() && message.member() == QLatin1String("EnumerateDevices")) {
        return connection.send(answerEnumeration(message));
    }
    const QString interface = QStringLiteral("org.freedesktop.UDisks.Device");
    const FakeDevice asked = device(message.path());
    if (message.interface() == interface) {
        return connection.send(answerOperation(message, asked));
    }
    if (message.interface() != QLatin1String("org.freedesktop.DBus.Properties") ||
        message.arguments().value(0) != interface) {
        return false;
    }
    if (message.member() == QLatin1String("Get")) {
        return connection.send(answerProperty(message, asked));
    }
    QThread::msleep(static_cast<unsigned long>(asked.delayMs));
    if (!asked.error.isEmpty()) {
        return connection.send(
            message.createErrorReply(QString::fromLatin1(kErrorName), asked.error));
    }
    return connection.send(message.createReply(
        asked.wrongType.isValid() ? asked.wrongType : QVariant(asked.properties)));
}

QDBusMessage FakeDiskService::answerEnumeration(const QDBusMessage& question)
{
    const QMutexLocker lock(&mutex_);
    ++enumerations_;
    if (!enumerationError_.isEmpty()) {
        return question.createErrorReply(QString::fromLatin1(kErrorName), enumerationError_);
    }
    if (enumerationWrongType_.isValid()) {
        return question.createReply(enumerationWrongType_);
    }
    return question.createReply(QVariant::fromValue(paths_));
}

QDBusMessage FakeDiskService::answerProperty(const QDBusMessage& question,
                                             const FakeDevice& asked) const
{
    const QVariant value = asked.properties.value(question.arguments().value(1).toString());
    if (!value.isValid())
        return question.createErrorReply(QString::fromLatin1(kErrorName), asked.error);
    return question.createReply(QVariant::fromValue(QDBusVariant(value)));
}

// Takes only what asks for the type to be found out and for no options.
QDBusMessage FakeDiskService::answerOperation(const QDBusMessage& call, const FakeDevice& asked)
{
    const bool isMount = call.member() == QLatin1String("FilesystemMount") &&
                         call.arguments() == QVariantList{QString(), QStringList()};
    const bool isUnmount = call.member() == QLatin1String("FilesystemUnmount") &&
                           call.arguments() == QVariantList{QStringList()};
    if (!asked.mountError.isEmpty() || (!isMount && !isUnmount))
        return call.createErrorReply(QString::fromLatin1(kErrorName), asked.mountError);
    const QMutexLocker lock(&mutex_);
    for (FakeDevice& device : devices_) {
        if (device.name == asked.name)
            device = device.with("DeviceMountPaths",
                                 isMount ? QStringList{asked.mountPath} : QStringList());
    }
    return isMount ? call.createReply(asked.mountPath) : call.createReply();
}

FakeDevice FakeDiskService::device(const QString& objectPath) const
{
    const QMutexLocker lock(&mutex_);
    return devices_.value(objectPath);
}
