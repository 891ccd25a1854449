// Prints how often a writing run notices a drive that lies: for each kind of drive and each level
// of verification a line "KIND|LEVEL|RUNS|FOUND". The pass is the driver's own, the drive a model.

#include "helpers/common/failure.h"
#include "helpers/driver/drive_pass.h"
#include "helpers/driver/io_memory.h"
#include "tests/support/model_drive.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <unordered_set>

namespace {

// So few bytes only make it faster: what counts is how many sectors there are, a little more
// than the fewest of which a tenth is read.
constexpr std::uint32_t kSectorBytes = 16;
constexpr std::uint64_t kSectors = 1 << 20;
constexpr std::uint64_t kNowhere = kSectors;

using Random = std::mt19937_64;

struct Kind {
    const char* name;
    std::function<ModelDrive::Faults(Random&)> faults;
};

std::uint64_t below(std::uint64_t end, Random& random)
{
    return std::uniform_int_distribution<std::uint64_t>(0, end - 1)(random);
}

ModelDrive::Faults lost_region(std::uint64_t sectors, Random& random)
{
    const std::uint64_t start = below(kSectors - sectors + 1, random);
    return {.place = [=](std::uint64_t sector) {
        return sector - start < sectors ? kNowhere : sector;
    }};
}

ModelDrive::Faults lost_sectors(std::uint64_t count, Random& random)
{
    std::unordered_set<std::uint64_t> lost;
    while (lost.size() < count) {
        lost.insert(below(kSectors, random));
    }
    std::vector<bool> isLost(kSectors);
    for (const std::uint64_t sector : lost) {
        isLost[sector] = true;
    }
    return {.place = [isLost](std::uint64_t sector) { return isLost[sector] ? kNowhere : sector; }};
}

// What is behind the end comes to the beginning, or anywhere else.
ModelDrive::Faults wrapped(unsigned percent, bool isAnywhere, Random& random)
{
    const std::uint64_t size = kSectors * percent / 100;
    const std::uint64_t missing = kSectors - size;
    const std::uint64_t start = isAnywhere ? below(size - missing + 1, random) : 0;
    return {
        .place =
            [=](std::uint64_t sector) { return sector < size ? sector : start + (sector - size); },
        .cachedSectors = missing / 2};
}

Kind wrapped_kind(const char* name, unsigned percent, bool isAnywhere)
{
    return {name, [=](Random& random) { return wrapped(percent, isAnywhere, random); }};
}

const std::array kKinds{
    Kind{"honest", [](Random&) { return ModelDrive::Faults(); }},
    Kind{"a region of 1 % lost",
         [](Random& random) { return lost_region(kSectors / 100, random); }},
    Kind{"0.01 % of the sectors lost, scattered",
         [](Random& random) { return lost_sectors(kSectors / 10000, random); }},
    Kind{"one sector lost", [](Random& random) { return lost_sectors(1, random); }},
    wrapped_kind("starts again at its beginning after 90 %", 90, false),
    wrapped_kind("starts again at its beginning after 97 %", 97, false),
    wrapped_kind("starts again at its beginning after 99 %", 99, false),
    wrapped_kind("goes on anywhere else after 90 %", 90, true),
    wrapped_kind("goes on anywhere else after 97 %", 97, true),
    wrapped_kind("goes on anywhere else after 99 %", 99, true),
};

bool is_found(const Kind& kind, Verification verification, Random& random)
{
    const RunPlan plan{.name = "model",
                       .access = TargetDevice::Access::Write,
                       .sizeBytes = kSectors * kSectorBytes,
                       .sectorSizeBytes = kSectorBytes,
                       .stepBytes = 256 * kSectorBytes,
                       .verification = verification};
    IoMemory memory(plan, "VANTRELL");
    ModelDrive drive(kSectors, kSectorBytes, kind.faults(random));
    try {
        DrivePass(plan, memory, drive, [](unsigned) {}).run();
        return false;
    } catch (const Failure&) {
        return true;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 1 ? std::atoi(argv[1]) : 1000;
    Random random(5);
    for (const Kind& kind : kKinds) {
        for (const auto& [level, verification] :
             {std::pair("spot", Verification::Spot), std::pair("tenth", Verification::Tenth),
              std::pair("full", Verification::Full)}) {
            int found = 0;
            for (int run = 0; run < runs; ++run) {
                found += is_found(kind, verification, random) ? 1 : 0;
            }
            std::printf("%s|%s|%d|%d\n", kind.name, level, runs, found);
            std::fflush(stdout);
        }
    }
    return 0;
}
