#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

struct RunPlan;

/// All memory that a run reads into or writes from: one request full of the pattern, and
/// single sectors. It is aligned for direct I/O, and its size does not depend on the drive's.
class IoMemory {
public:
    /// Fills the request with the pattern, every sector starting it anew; with an empty one
    /// (for reading) it stays zero.
    IoMemory(const RunPlan& plan, const std::string& pattern);

    [[nodiscard]] std::span<char> whole() const { return {memory_.get(), sizeBytes_}; }

    /// One request.
    [[nodiscard]] char* request() const { return memory_.get(); }

    /// A part of it for a smaller request, another for each slot until all are given. What is read
    /// in a reading run is not looked at, so requests that are on their way together may share
    /// one, which keeps it in the processor's cache.
    [[nodiscard]] char* part(std::size_t slot, std::size_t bytes) const
    {
        return request() + slot % (requestBytes_ / bytes) * bytes;
    }

    /// One sector of its own for each slot below RequestQueue::kMaxDepth.
    [[nodiscard]] char* sector(std::size_t slot) const;

private:
    std::size_t requestBytes_;
    std::size_t sectorBytes_;
    std::size_t sizeBytes_;
    std::unique_ptr<char, void (*)(void*)> memory_;
};
