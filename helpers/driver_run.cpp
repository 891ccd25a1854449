#include "helpers/driver_run.h"

#include "helpers/driver_output.h"
#include "helpers/driver_pass.h"
#include "helpers/driver_request.h"
#include "helpers/driver_transfer.h"

#include <algorithm>
#include <chrono>

namespace {

// udev locks a device for a moment after it appeared or changed.
constexpr std::chrono::seconds kBusyWait{2};

// Keeps the whole program below 16 MiB, libraries included, however large the sectors are.
constexpr std::uint32_t kMaxStepBytes = 4U << 20U;

std::uint32_t step_bytes(std::uint32_t sectorsPerStep, std::uint32_t sectorSizeBytes)
{
    return sectorSizeBytes * std::clamp(kMaxStepBytes / sectorSizeBytes, 1U, sectorsPerStep);
}

void show_percent(unsigned percent)
{
    write_output_line("progress: " + std::to_string(percent));
}

} // namespace

void run_driver(const DriverRequest& request)
{
    const TargetDevice device(request.devicePath, request.access, kBusyWait);
    const PassPlan plan{
        .path = device.path(),
        .access = request.access,
        .sizeBytes = device.sizeBytes(),
        .sectorSizeBytes = device.sectorSizeBytes(),
        .stepBytes = step_bytes(request.sectorsPerStep, device.sectorSizeBytes()),
    };
    DeviceTransfer transfer(device, plan, request.pattern);
    Pass(plan, transfer, show_percent).run();
}
