#include "tests/storage/fake_disk_service.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

namespace {

const char* const kConnectionName = "fake-disk-service";
const char* const kRootPath = "/org/freedesktop/UDisks";
const char* const kErrorName = "org.freedesktop.UDisks.Error.Failed";

QDBusMessage answer(const QDBusMessage& question, const QString& error, const QVariant& wrongType,
                    const QVariant& value)
{
    if (!error.isEmpty()) {
        return question.createErrorReply(kErrorName, error);
    }
    return question.createReply(wrongType.isValid() ? wrongType : value);
}

} // namespace

FakeDevice FakeDevice::with(const char* property, const QVariant& value) const
{
    FakeDevice changed = *this;
    changed.properties.remove(property);
    if (value.isValid()) {
        changed.properties.insert(property, value);
    }
    return changed;
}

FakeDevice fake_drive(const char* name)
{
    return FakeDevice{name, {}, {}, {}}
        .with("DeviceFile", QString("/dev/") + name)
        .with("DeviceIsDrive", true)
        .with("DeviceSize", 500'000'000'000ULL)
        .with("DeviceBlockSize", 512ULL)
        .with("DriveModel", QString("Model ") + name)
        .with("DriveSerial", QString("Serial ") + name);
}

FakeDevice fake_partition(const char* name)
{
    return FakeDevice{name, {}, {}, {}}
        .with("DeviceFile", QString("/dev/") + name)
        .with("DeviceIsPartition", true)
        .with("DeviceSize", 1'000'000'000ULL)
        .with("IdType", "vfat")
        .with("IdVersion", "FAT32")
        .with("IdLabel", "DATA");
}

FakeDiskService::FakeDiskService(const QString& busAddress)
{
    auto bus = QDBusConnection::connectToBus(busAddress, kConnectionName);
    // Before the move: it makes a child of this object.
    bus.registerVirtualObject(kRootPath, this, QDBusConnection::SubPath);
    moveToThread(&thread_);
    thread_.start();
    if (!bus.registerService("org.freedesktop.UDisks")) {
        qFatal("the fake disk service is not on the bus");
    }
}

FakeDiskService::~FakeDiskService()
{
    QDBusConnection::disconnectFromBus(kConnectionName);
    thread_.quit();
    thread_.wait();
}

bool FakeDiskService::handleMessage(const QDBusMessage& message, const QDBusConnection& connection)
{
    if (message.member() == "EnumerateDevices") {
        return connection.send(answerEnumeration(message));
    }
    const QString interface = "org.freedesktop.UDisks.Device";
    const FakeDevice asked = device(message.path());
    if (message.interface() == interface) {
        return connection.send(answerOperation(message, asked));
    }
    if (message.arguments().value(0) != interface) {
        return false;
    }
    if (message.member() == "Get") {
        return connection.send(answerProperty(message, asked));
    }
    QThread::msleep(static_cast<unsigned long>(asked.delayMs));
    return connection.send(answer(message, asked.error, asked.wrongType, asked.properties));
}

QDBusMessage FakeDiskService::answerEnumeration(const QDBusMessage& question)
{
    const QMutexLocker lock(&mutex_);
    ++enumerations_;
    QList<QDBusObjectPath> paths;
    for (const FakeDevice& device : devices_) {
        paths << QDBusObjectPath(kRootPath + ("/devices/" + device.name));
    }
    return answer(question, enumerationError_, enumerationWrongType_, QVariant::fromValue(paths));
}

QDBusMessage FakeDiskService::answerProperty(const QDBusMessage& question,
                                             const FakeDevice& asked) const
{
    const QVariant value = asked.properties.value(question.arguments().value(1).toString());
    return value.isValid() ? question.createReply(QVariant::fromValue(QDBusVariant(value)))
                           : question.createErrorReply(kErrorName, asked.error);
}

// Takes only what asks for the type to be found out and for no options.
QDBusMessage FakeDiskService::answerOperation(const QDBusMessage& call, const FakeDevice& asked)
{
    const bool isMount = call.member() == "FilesystemMount" &&
                         call.arguments() == QVariantList{QString(), QStringList()};
    const bool isUnmount =
        call.member() == "FilesystemUnmount" && call.arguments() == QVariantList{QStringList()};
    if (!asked.mountError.isEmpty() || (!isMount && !isUnmount)) {
        return call.createErrorReply(kErrorName, asked.mountError);
    }
    const QMutexLocker lock(&mutex_);
    for (FakeDevice& device : devices_) {
        if (device.name == asked.name) {
            const QStringList paths = isMount ? QStringList{asked.mountPath} : QStringList();
            device = device.with("DeviceMountPaths", paths);
        }
    }
    return isMount ? call.createReply(asked.mountPath) : call.createReply();
}

FakeDevice FakeDiskService::device(const QString& objectPath) const
{
    const QMutexLocker lock(&mutex_);
    const QString name = objectPath.section('/', -1);
    for (const FakeDevice& device : devices_) {
        if (device.name == name) {
            return device;
        }
    }
    return {};
}
