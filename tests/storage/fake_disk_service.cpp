#include "tests/storage/fake_disk_service.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>

namespace {

const char* const kConnectionName = "fake-disk-service";
const char* const kRootPath = "/org/freedesktop/UDisks";

QDBusMessage answer(const QDBusMessage& question, const QString& error, const QVariant& wrongType,
                    const QVariant& value)
{
    if (!error.isEmpty()) {
        return question.createErrorReply("org.freedesktop.UDisks.Error.Failed", error);
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
    if (message.arguments() != QVariantList{"org.freedesktop.UDisks.Device"}) {
        return false;
    }
    const FakeDevice asked = device(message.path());
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

FakeDevice FakeDiskService::device(const QString& objectPath) const
{
    const QMutexLocker lock(&mutex_);
    for (const FakeDevice& device : devices_) {
        if (objectPath.endsWith('/' + device.name)) {
            return device;
        }
    }
    return {};
}
