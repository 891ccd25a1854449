#pragma once

#include "diskservice/source/boot_medium.h"
#include "diskservice/source/device_record.h"
#include "diskservice/source/drive_prober.h"
#include "diskservice/source/kernel_devices.h"
#include "diskservice/source/notices.h"

#include <string>
#include <utility>
#include <vector>

/// The source of devices that are the machine's own drives and their partitions. The drives
/// that the running system came from, and the medium that its command line names, are left
/// out and not opened; so is what is no drive. Each is told on standard error, and so is a
/// drive that does not answer, which is listed as the kernel describes it.
class BlockDeviceSource {
public:
    /// The root stands before /sys, /proc and /dev, for tests; empty is the machine itself.
    explicit BlockDeviceSource(std::string root) : root_(std::move(root)) {}

    /// All devices as they are now.
    std::vector<DeviceRecord> operator()();

private:
    std::vector<DeviceRecord> lookAtAll();
    std::vector<KernelDevice> wholeDrives(const std::vector<KernelDevice>& all);
    std::vector<ProbeRequest> listDrives(BootMedium& medium);
    void addDrive(std::vector<DeviceRecord>& devices, const ProbeRequest& request,
                  const DriveFindings* findings);
    void leaveOut(const std::string& deviceFile, const std::string& reason);

    std::string root_;
    DriveProber prober_;
    Notices notices_;
};
