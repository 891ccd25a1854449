#pragma once

#include "diskservice/mount/media_mounter.h"
#include "diskservice/source/device_record.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QMap>
#include <QVariantMap>

/// The objects of the service, answered from one snapshot of the devices: the service's own
/// object, the folder of the devices and, below it, every device.
///
/// A snapshot is taken at the start, by each call of EnumerateDevices and by refresh(), and at
/// no other time: what a client learns about the devices stays as it is while it asks for them
/// one after the other. Only where a device is mounted is looked up again after each call that
/// mounts or unmounts it. What changes is also sent as signals.
class BusObjects : public QDBusVirtualObject {
    Q_OBJECT

public:
    /// The name that the service owns on the bus, and the path to register this object at,
    /// together with all paths below.
    static const QString kBusName;
    static const QString kPath;

    /// The root is the source's, for where devices are mounted.
    BusObjects(DeviceSource source, const std::string& root);

    [[nodiscard]] QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override;

    /// Takes a snapshot and tells on the bus what has changed.
    void refresh(const QDBusConnection& bus);

signals:
    /// The connection to the bus has ended.
    void busLost();

private:
    /// Every device, by object path.
    using Snapshot = QMap<QString, DeviceRecord>;

    [[nodiscard]] Snapshot takeSnapshot() const;
    [[nodiscard]] bool isObject(const QString& path) const;
    [[nodiscard]] QString interfaceOf(const QString& path) const;
    [[nodiscard]] QVariantMap propertiesOf(const QString& path) const;
    [[nodiscard]] QDBusMessage answer(const QDBusMessage& call, const QDBusConnection& bus);
    [[nodiscard]] QDBusMessage answerProperties(const QDBusMessage& call) const;
    [[nodiscard]] QDBusMessage enumerateDevices(const QDBusMessage& call,
                                                const QDBusConnection& bus);
    [[nodiscard]] QDBusMessage answerDevice(const QDBusMessage& call, const QDBusConnection& bus);
    [[nodiscard]] QDBusMessage mountOrUnmount(const QDBusMessage& call);

    DeviceSource source_;
    std::string root_;
    MediaMounter mounter_;
    Snapshot snapshot_;
};
