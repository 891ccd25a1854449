#include "tests/support/fake_disk_service.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>

#include <algorithm>

namespace {

const char* const kConnectionName = "fake-disk-service";
const char* const kRootPath = "/org/freedesktop/UDisks";
const char* const kErrorName = "org.freedesktop.UDisks.Error.Failed";
const QString kDevice = "org.freedesktop.UDisks.Device";

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
    const QMutexLocker lock(&mutex_);
    if (message.member() == "EnumerateDevices") {
        return connection.send(answerEnumeration(message));
    }
    const QString name = message.path().section('/', -1);
    FakeDevice none;
    const auto found = std::find_if(devices_.begin(), devices_.end(),
                                    [&](const auto& device) { return device.name == name; });
    FakeDevice& asked = found == devices_.end() ? none : *found;
    return connection.send(message.interface() == kDevice ? answerOperation(message, asked)
                                                          : answerProperties(message, asked));
}

QDBusMessage FakeDiskService::answerEnumeration(const QDBusMessage& question)
{
    ++enumerations_;
    QList<QDBusObjectPath> paths;
    for (const FakeDevice& device : devices_) {
        paths << QDBusObjectPath(kRootPath + ("/devices/" + device.name));
    }
    return answer(question, enumerationError_, enumerationWrongType_, QVariant::fromValue(paths));
}

QDBusMessage FakeDiskService::answerProperties(const QDBusMessage& question,
                                               const FakeDevice& asked)
{
    const QVariantList arguments = question.arguments();
    if (arguments.value(0) != kDevice) {
        return question.createErrorReply(QDBusError::InvalidArgs, "not of this interface");
    }
    if (question.member() == "GetAll") {
        QThread::msleep(static_cast<unsigned long>(asked.delayMs));
        return answer(question, asked.error, asked.wrongType, asked.properties);
    }
    const QVariant value = asked.properties.value(arguments.value(1).toString());
    return value.isValid() ? question.createReply(QVariant::fromValue(QDBusVariant(value)))
                           : question.createErrorReply(kErrorName, asked.error);
}

// Takes only what asks for the type to be found out and for no options.
QDBusMessage FakeDiskService::answerOperation(const QDBusMessage& call, FakeDevice& asked)
{
    const bool isMount = call.member() == "FilesystemMount" &&
                         call.arguments() == QVariantList{QString(), QStringList()};
    const bool isUnmount =
        call.member() == "FilesystemUnmount" && call.arguments() == QVariantList{QStringList()};
    if (!asked.mountError.isEmpty() || (!isMount && !isUnmount)) {
        return call.createErrorReply(kErrorName, asked.mountError);
    }
    const QStringList paths = isMount ? QStringList{asked.mountPath} : QStringList();
    asked = asked.with("DeviceMountPaths", paths);
    return isMount ? call.createReply(asked.mountPath) : call.createReply();
}
