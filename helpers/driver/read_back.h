#pragma once

#include "helpers/driver/request_queue.h"

#include <cstdint>
#include <string>
#include <vector>

class IoMemory;
class Marks;
struct RunPlan;

/// Looks at what a drive holds after a writing pass and a flush: a drive that drops writes,
/// or has less room than it says, reports success for every one of them.
class ReadBack {
public:
    /// All must outlive this.
    ReadBack(const RunPlan& plan, const IoMemory& memory, RequestQueue& queue);

    /// Reads the sectors and compares them with the marks, where there is one, else with the
    /// pattern. Gives what is wrong, for the user, or an empty text.
    [[nodiscard]] std::string findLostWrites(const std::vector<std::uint64_t>& sectors,
                                             const Marks& marks);

private:
    [[nodiscard]] bool holdsWhatWasWritten(std::uint64_t sector, const char* content,
                                           const Marks& marks) const;

    const RunPlan& plan_;
    const IoMemory& memory_;
    RequestQueue& queue_;
};
