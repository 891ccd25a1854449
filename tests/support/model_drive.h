#pragma once

#include "helpers/driver/request_queue.h"

#include <deque>
#include <functional>
#include <vector>

/// A drive in memory that fails and lies as it is told, in the stead of a device for the driver's
/// passes. Requests are done when they are started.
class ModelDrive : public RequestQueue {
public:
    struct Faults {
        /// Where a sector really is; the number of sectors or more loses what is written.
        std::function<std::uint64_t(std::uint64_t sector)> place = nullptr;
        /// So many sectors, the last ones written, are not at their places yet.
        std::uint64_t cachedSectors = 0;
        /// The errno value that a request ends with, or 0.
        std::function<int(const IoRequest& request)> error = nullptr;
    };

    ModelDrive(std::uint64_t sectorCount, std::uint32_t sectorBytes, Faults faults);

    /// What is at the drive's places.
    [[nodiscard]] const std::vector<char>& content() const { return content_; }

    /// As if the kernel had not answered any more.
    void giveUp() { hasGivenUp_ = true; }

    [[nodiscard]] bool isAsynchronous() const override { return !hasGivenUp_; }
    [[nodiscard]] bool hasGivenUp() const override { return hasGivenUp_; }
    void start(const IoRequest& request, bool alone) override;
    [[nodiscard]] ssize_t finishOldest() override;
    [[nodiscard]] ssize_t transfer(const IoRequest& request) override;
    [[nodiscard]] int flush() override { return 0; }
    [[nodiscard]] std::uint64_t currentSizeBytes() const override { return content_.size(); }

private:
    [[nodiscard]] std::uint64_t placeOf(std::uint64_t sector) const;
    void write(std::uint64_t sector, const char* data);
    void read(std::uint64_t sector, char* data) const;
    void put(std::uint64_t sector, const char* data);

    std::uint32_t sectorBytes_;
    Faults faults_;
    std::vector<char> content_;
    std::uint64_t writes_ = 0;
    std::vector<std::uint64_t> lastWrites_;   ///< Of each sector its number from 1 on, or 0.
    std::vector<std::uint64_t> cacheSectors_; ///< A ring with the sectors of the last writes,
    std::vector<char> cache_;                 ///< and what was written.
    std::deque<ssize_t> results_;
    bool hasGivenUp_ = false;
};
