#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <QTimer>

#include <libudev.h>

#include <memory>

/// Tells when block devices have come, gone or changed, once for a burst of such events. When
/// udev cannot be listened to, that is told on standard error and nothing else happens.
class DeviceMonitor : public QObject {
    Q_OBJECT

public:
    DeviceMonitor();

signals:
    void changed();

private:
    void takeEvents();

    std::unique_ptr<udev, udev* (*)(udev*)> library_;
    std::unique_ptr<udev_monitor, udev_monitor* (*)(udev_monitor*)> monitor_;
    std::unique_ptr<QSocketNotifier> notifier_;
    QTimer delay_;
};
