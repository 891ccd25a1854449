#include "helpers/driver/read_back.h"

#include "helpers/driver/io_memory.h"
#include "helpers/driver/marks.h"

#include <algorithm>
#include <cstring>
#include <vector>

ReadBack::ReadBack(const SweepTools& tools, const Marks& marks) : tools_(tools), marks_(marks)
{
}

std::string ReadBack::findLostWrites(const ByteRanges& ranges)
{
    Sweep(tools_, TargetDevice::Access::Read, ranges, *this).run();
    return describe(ranges);
}

char* ReadBack::memoryFor(const IoRequest& /*request*/, char* slot)
{
    return slot;
}

void ReadBack::moved(const IoRequest& part)
{
    checkMarks(part);
    const char* const pattern = tools_.memory.pattern();
    if (std::memcmp(part.memory, pattern, part.lengthBytes) == 0) {
        return;
    }
    const std::size_t sectorBytes = tools_.plan.sectorSizeBytes;
    for (std::size_t done = 0; done < part.lengthBytes; done += sectorBytes) {
        const std::size_t length = std::min(sectorBytes, part.lengthBytes - done);
        if (std::memcmp(part.memory + done, pattern, length) != 0) {
            lost_.add((part.offsetBytes + done) / sectorBytes);
        }
    }
}

void ReadBack::failed(const IoRequest& sector, int error)
{
    unreadable_.add(sector.offsetBytes / tools_.plan.sectorSizeBytes, error);
}

// Leaves the pattern in their places.
void ReadBack::checkMarks(const IoRequest& part)
{
    const std::size_t sectorBytes = tools_.plan.sectorSizeBytes;
    const std::uint64_t first = part.offsetBytes / sectorBytes;
    std::vector<char> expected(sectorBytes);
    for (const std::uint64_t sector : marks_.among(first, part.lengthBytes / sectorBytes)) {
        char* const found = part.memory + (sector - first) * sectorBytes;
        marks_.fill(sector, expected.data());
        if (std::memcmp(found, expected.data(), sectorBytes) != 0) {
            lost_.add(sector);
        }
        std::memcpy(found, tools_.memory.pattern(), sectorBytes);
    }
}

std::string ReadBack::describe(const ByteRanges& ranges) const
{
    const std::uint64_t sectorBytes = tools_.plan.sectorSizeBytes;
    const std::uint64_t all = (total_bytes(ranges) + sectorBytes - 1) / sectorBytes;
    const std::string ofAll = " of the " + std::to_string(all) + " sectors looked at ";
    std::string text;
    if (!lost_.isEmpty()) {
        text =
            std::to_string(lost_.count()) + ofAll +
            "do not hold what was written (the drive loses writes or is smaller than it says), " +
            lost_.describeFirst();
    }
    if (!unreadable_.isEmpty()) {
        text += (text.empty() ? "" : "; ") + std::to_string(unreadable_.count()) + ofAll +
                "could not be read, " + unreadable_.describeFirst();
    }
    return text.empty() ? text : tools_.plan.name + ": read back: " + text;
}
