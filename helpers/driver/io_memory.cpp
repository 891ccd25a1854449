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

} // namespace

IoMemory::IoMemory(const RunPlan& plan, const std::string& pattern)
    : sectorBytes_(plan.sectorSizeBytes), pattern_(pattern),
      memory_(allocate(kMaxRequestBytes + kSlotBytes))
{
}

std::size_t IoMemory::slotCount(std::size_t requestBytes) const
{
    const std::size_t count = kSlotBytes / requestBytes;
    return spareSlot_ ? 1 : std::clamp<std::size_t>(count, 1, RequestQueue::kMaxDepth);
}

char* IoMemory::slot(std::size_t number, std::size_t requestBytes) const
{
    return spareSlot_ ? spareSlot_.get() : memory_.get() + kMaxRequestBytes + number * requestBytes;
}

void IoMemory::giveUpSlots()
{
    if (!spareSlot_) {
        spareSlot_ = allocate(kMaxRequestBytes);
    }
}

IoMemory::Memory IoMemory::allocate(std::size_t bytes) const
{
    void* memory = nullptr;
    const std::size_t alignment = std::max<std::size_t>(kMinAlignment, sectorBytes_);
    if (::posix_memalign(&memory, alignment, bytes) != 0) {
        throw std::bad_alloc();
    }
    Memory result(static_cast<char*>(memory), &std::free);
    // An empty pattern stands for zeros.
    pattern_fill_sector(memory, sectorBytes_, pattern_.data(),
                        static_cast<unsigned int>(pattern_.size()));
    for (std::size_t done = sectorBytes_; done < bytes; done += sectorBytes_) {
        std::memcpy(result.get() + done, memory, sectorBytes_);
    }
    return result;
}
