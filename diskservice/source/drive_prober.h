#pragma once

#include "diskservice/source/device_record.h"

#include <chrono>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// What is to be found out about one drive by opening it.
struct ProbeRequest {
    std::string root; ///< Before each device file; empty on the machine itself.
    DeviceRecord drive;
    std::vector<DeviceRecord> partitions;
    bool isOptical = false;
    bool isFloppy = false;
    /// As long as it is the same, so is what the drive holds; empty when nothing tells.
    std::string stamp;
};

struct DriveFindings {
    std::uint64_t sizeBytes = 0; ///< 0 without a medium.
    std::optional<PartitionTable> table;
    std::map<std::string, Content> contents; ///< By device file; what is recognised only.
    std::string discImageUuid;      ///< Of a disc image on the whole drive, also beside partitions.
    std::set<std::string> problems; ///< Each with its device file.
};

/// Opens and reads drives, several at once, each on a thread that nobody waits for longer than
/// the limit: a broken drive can keep a thread in the kernel for minutes, and no signal ends
/// that. Such a thread is left alone, and its drive is not opened again until it is back.
class DriveProber {
public:
    DriveProber();

    /// The findings in the order of the requests; null for a drive that has not answered.
    std::vector<std::shared_ptr<const DriveFindings>>
    probe(const std::vector<ProbeRequest>& requests);

private:
    using Clock = std::chrono::steady_clock;
    struct Job;
    struct Queue;

    static bool isStillTrue(const Job& job, const ProbeRequest& request);
    static void work(const std::shared_ptr<Queue>& queue);

    std::shared_ptr<Queue> queue_;
    std::map<std::string, std::shared_ptr<Job>> jobs_; ///< The latest, by device file.
};
