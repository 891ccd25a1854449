#include "helpers/driver/run.h"

#include "helpers/common/drive_identity.h"
#include "helpers/driver/arguments.h"
#include "helpers/driver/device_queue.h"
#include "helpers/driver/drive_pass.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/marks.h"
#include "helpers/driver/output.h"
#include "helpers/driver/run_plan.h"
#include "helpers/protocol/driver_protocol.h"

#include <algorithm>

namespace {

// Steps are joined to requests of this size: with eight on their way a loop device over
// memory took 4.6 GB/s with 256 KiB, 6.7 with 512, 7.6 with 1 MiB, 9.6 with 2 MiB, and the
// processor time halved. More would only delay the end of a run that is killed, as what is on
// its way is still written.
constexpr std::uint32_t kRequestBytes = 2U << 20U;

// By plain calls and by threads, smaller ones stay in the processor's cache.
constexpr std::uint32_t kSmallRequestBytes = 512U << 10U;

// Few, as they stay behind in what was written when a run is killed.
constexpr std::uint64_t kMarks = 64;

// As many whole steps as have room, at least one.
std::uint32_t joined_steps(std::uint32_t stepBytes, std::uint32_t maxBytes)
{
    return std::max(maxBytes - maxBytes % stepBytes, stepBytes);
}

RunPlan make_plan(const TargetDevice& device, const DriverArguments& arguments)
{
    const std::uint32_t sectorBytes = device.sectorSizeBytes();
    const std::uint32_t maxSectors = std::max(kRequestBytes / sectorBytes, 1U);
    const std::uint32_t stepBytes = std::min(maxSectors, arguments.sectorsPerStep) * sectorBytes;
    return {
        .name = device.name(),
        .access = arguments.access,
        .sizeBytes = device.sizeBytes(),
        .sectorSizeBytes = sectorBytes,
        .stepBytes = stepBytes,
        .requestBytes = joined_steps(stepBytes, kRequestBytes),
    };
}

Marks make_marks(const RunPlan& plan)
{
    if (plan.access == TargetDevice::Access::Read) {
        return {};
    }
    const std::uint64_t count = std::min(kMarks, plan.sectorCount() / kMarks + 1);
    return {spread_sectors(plan.sectorCount(), count), plan.sectorSizeBytes};
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
    RunPlan plan = make_plan(device, arguments);
    const IoMemory memory(plan, arguments.pattern);
    DeviceQueue queue(device, plan.access, memory.whole());
    if (!queue.isAsynchronous()) {
        plan.requestBytes = joined_steps(plan.stepBytes, kSmallRequestBytes);
    }
    DrivePass(plan, make_marks(plan), memory, queue, show_percent).run();
}
