#include "diskservice/source/device_monitor.h"

#include <iostream>

DeviceMonitor::DeviceMonitor()
    : library_(udev_new(), udev_unref),
      monitor_(library_ ? udev_monitor_new_from_netlink(library_.get(), "udev") : nullptr,
               udev_monitor_unref)
{
    constexpr int kBurstMs = 200;
    delay_.setSingleShot(true);
    delay_.setInterval(kBurstMs);
    connect(&delay_, &QTimer::timeout, this, &DeviceMonitor::changed);
    if (!monitor_ ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "block", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor_.get()) < 0) {
        std::cerr << "diskservice: udev: cannot be listened to: changes are seen by the next "
                     "EnumerateDevices"
                  << std::endl;
        return;
    }
    notifier_ = std::make_unique<QSocketNotifier>(udev_monitor_get_fd(monitor_.get()),
                                                  QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, &DeviceMonitor::takeEvents);
}

void DeviceMonitor::takeEvents()
{
    while (udev_device* device = udev_monitor_receive_device(monitor_.get())) {
        udev_device_unref(device);
    }
    if (!delay_.isActive()) { // A stream of events must not put it off for ever.
        delay_.start();
    }
}
