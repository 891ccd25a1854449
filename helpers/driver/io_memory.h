#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct RunPlan;

/// All memory that a run reads into or writes from, aligned for direct I/O: one request full of
/// the pattern, which stays as it is, and slots. Its size does not depend on the drive's.
class IoMemory {
public:
    /// No request is longer.
    static constexpr std::uint32_t kMaxRequestBytes = 2U << 20U;

    /// Fills everything with the pattern, every sector starting it anew; with an empty one (for
    /// reading) it stays zero.
    IoMemory(const RunPlan& plan, const std::string& pattern);

    /// To be registered with the kernel.
    [[nodiscard]] std::span<char> whole() const
    {
        return {memory_.get(), kMaxRequestBytes + kSlotBytes};
    }

    /// The pattern, kMaxRequestBytes or a little less: whole sectors.
    [[nodiscard]] const char* pattern() const { return memory_.get(); }

    /// The same for a request to write from.
    [[nodiscard]] char* shared() const { return memory_.get(); }

    /// How many requests of this size have a slot, at least one.
    [[nodiscard]] std::size_t slotCount(std::size_t requestBytes) const;

    /// Memory of a request's own. The slots of another size overlap these.
    [[nodiscard]] char* slot(std::size_t number, std::size_t requestBytes) const;

    /// From now on there is one slot, elsewhere: the kernel may still use the others.
    void giveUpSlots();

private:
    using Memory = std::unique_ptr<char, void (*)(void*)>;

    // The program needs three MiB beside.
    static constexpr std::size_t kSlotBytes = 8U << 20U;

    [[nodiscard]] Memory allocate(std::size_t bytes) const;

    std::uint32_t sectorBytes_;
    std::string pattern_;
    Memory memory_;
    Memory spareSlot_{nullptr, nullptr};
};
