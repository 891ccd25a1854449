#include "helpers/driver/read_back.h"

#include "helpers/driver/io_memory.h"
#include "helpers/driver/marks.h"
#include "helpers/driver/run_plan.h"

#include <algorithm>
#include <system_error>

ReadBack::ReadBack(const RunPlan& plan, const IoMemory& memory, RequestQueue& queue)
    : plan_(plan), memory_(memory), queue_(queue)
{
}

std::string ReadBack::findLostWrites(const std::vector<std::uint64_t>& sectors, const Marks& marks)
{
    const std::size_t length = plan_.sectorSizeBytes;
    std::uint64_t lost = 0;
    std::string first;
    auto sector = sectors.begin();
    const NextRequest next = [&](std::size_t slot) -> std::optional<IoRequest> {
        if (sector == sectors.end()) {
            return std::nullopt;
        }
        return IoRequest{TargetDevice::Access::Read, *sector++ * length, length,
                         memory_.sector(slot)};
    };
    run_requests(
        queue_, RequestQueue::kMaxDepth, next, [&](const IoRequest& request, ssize_t result) {
            const std::uint64_t number = request.offsetBytes / length;
            const bool isRead = result == static_cast<ssize_t>(length);
            if (isRead && holdsWhatWasWritten(number, request.memory, marks)) {
                return;
            }
            if (lost++ == 0) {
                first = std::to_string(number);
                if (result < 0) {
                    first += ": " + std::generic_category().message(static_cast<int>(-result));
                }
            }
        });
    if (lost == 0) {
        return {};
    }
    return plan_.name + ": read back: " + std::to_string(lost) + " of the " +
           std::to_string(sectors.size()) +
           " sectors looked at do not hold what was written (the drive loses writes or is smaller "
           "than it says), first at sector " +
           first;
}

bool ReadBack::holdsWhatWasWritten(std::uint64_t sector, const char* content,
                                   const Marks& marks) const
{
    const char* const end = content + plan_.sectorSizeBytes;
    return marks.contains(sector) ? std::equal(content, end, marks.content(sector).begin())
                                  : std::equal(content, end, memory_.request());
}
