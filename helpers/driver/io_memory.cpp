#include "helpers/driver/io_memory.h"

#include "erase/pattern/pattern.h"
#include "helpers/driver/request_queue.h"
#include "helpers/driver/run_plan.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// Direct I/O wants memory aligned to the logical block size at most; a page also suits the
// kernel's own splitting into pages.
constexpr std::size_t kMinAlignment = 4096;

char* allocate_aligned(std::size_t alignment, std::size_t bytes)
{
    void* memory = nullptr;
    if (::posix_memalign(&memory, alignment, bytes) != 0) {
        throw std::bad_alloc();
    }
    std::memset(memory, 0, bytes);
    return static_cast<char*>(memory);
}

std::size_t round_up(std::size_t value, std::size_t unit)
{
    return (value + unit - 1) / unit * unit;
}

} // namespace

IoMemory::IoMemory(const RunPlan& plan, const std::string& pattern)
    : requestBytes_(round_up(plan.requestBytes, kMinAlignment)), sectorBytes_(plan.sectorSizeBytes),
      sizeBytes_(requestBytes_ + RequestQueue::kMaxDepth * sectorBytes_),
      memory_(allocate_aligned(std::max(kMinAlignment, sectorBytes_), sizeBytes_), &std::free)
{
    if (!pattern.empty()) {
        pattern_fill_sectors(request(), plan.sectorSizeBytes, pattern.data(),
                             static_cast<unsigned int>(pattern.size()),
                             plan.requestBytes / plan.sectorSizeBytes);
    }
}

char* IoMemory::sector(std::size_t slot) const
{
    return memory_.get() + requestBytes_ + slot * sectorBytes_;
}
