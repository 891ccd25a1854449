#include "helpers/driver/run.h"

#include "helpers/common/which_drive.h"
#include "helpers/driver/arguments.h"
#include "helpers/driver/device_queue.h"
#include "helpers/driver/drive_pass.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/output.h"
#include "helpers/driver/run_plan.h"
#include "helpers/protocol/driver_protocol.h"

#include <algorithm>

namespace {

RunPlan make_plan(const TargetDevice& device, const DriverArguments& arguments)
{
    const std::uint32_t sectorBytes = device.sectorSizeBytes();
    const std::uint32_t maxSectors = std::max(IoMemory::kMaxRequestBytes / sectorBytes, 1U);
    return {
        .name = device.name(),
        .access = arguments.access,
        .sizeBytes = device.sizeBytes(),
        .sectorSizeBytes = sectorBytes,
        .stepBytes = std::min(maxSectors, arguments.sectorsPerStep) * sectorBytes,
        .verification = arguments.verification,
    };
}

void show_percent(unsigned percent)
{
    write_output_line(driver_protocol::kProgress + std::to_string(percent));
}

} // namespace

void run_driver(const DriverArguments& arguments)
{
    const TargetDevice device(arguments.devicePath, arguments.access,
                              ExpectedDrive::fromEnvironment());
    const RunPlan plan = make_plan(device, arguments);
    IoMemory memory(plan, arguments.pattern);
    DeviceQueue queue(device, plan.access, memory.whole());
    DrivePass(plan, memory, queue, show_percent).run();
}
