#pragma once

#include "helpers/driver_pass.h"

#include <memory>

/// Writes to or reads from an open device, with one buffer that holds one step.
///
/// Direct I/O (open(2), O_DIRECT) as long as the file system and the alignment allow it;
/// from the first refusal on buffered I/O, flushed and dropped from the page cache at
/// regular intervals, so that a large drive does not push everything else out of memory.
class DeviceTransfer : public PassTarget {
public:
    /// Fills the buffer with `pattern` when the plan is to write. `device` must outlive this.
    DeviceTransfer(const TargetDevice& device, const PassPlan& plan, const std::string& pattern);

    [[nodiscard]] ssize_t transfer(std::uint64_t offsetBytes, std::size_t lengthBytes) override;
    [[nodiscard]] int flush() override;
    [[nodiscard]] std::uint64_t currentSizeBytes() const override;

private:
    [[nodiscard]] ssize_t transferOnce(std::uint64_t offset, std::size_t length);
    [[nodiscard]] bool setDirect(bool direct) const;
    void useBuffered();
    void trimPageCache(std::size_t movedBytes);

    const TargetDevice& device_;
    bool isWriting_;
    bool isDirect_;
    std::unique_ptr<char, void (*)(void*)> buffer_;
    std::size_t cachedBytes_ = 0;
    int flushError_ = 0;
};
