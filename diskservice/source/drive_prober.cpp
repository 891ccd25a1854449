#include "diskservice/source/drive_prober.h"

#include "diskservice/source/content_probe.h"
#include "diskservice/source/device_node.h"
#include "posix/descriptor.h"

#include <fcntl.h>
#include <linux/cdrom.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

void note_problem(DriveFindings& findings, const DeviceRecord& device, const std::string& what)
{
    findings.problems.insert(device.deviceFile + ": " + what);
}

// An optical drive is opened without waiting for a disc: else the kernel draws in its tray.
Descriptor open_device(const ProbeRequest& request, const DeviceRecord& device)
{
    return open_node(request.root, device, request.isOptical ? O_NONBLOCK : 0);
}

void find_content(DriveFindings& findings, const DeviceRecord& device, int descriptor)
{
    try {
        findings.contents[device.deviceFile] =
            probe_content({descriptor, 0, device.sizeBytes, device.blockSizeBytes});
    } catch (const ProbeFailure& failure) {
        note_problem(findings, device, failure.what());
    }
}

void find_on_drive(DriveFindings& findings, const ProbeRequest& request, int descriptor)
{
    const DeviceRecord& drive = request.drive;
    const ProbeRange range{descriptor, 0, drive.sizeBytes, drive.blockSizeBytes};
    try {
        if (!request.isOptical) { // The kernel makes no partitions there.
            findings.table = probe_partition_table(range);
        }
        findings.discImageUuid = probe_disc_image(range);
    } catch (const ProbeFailure& failure) {
        note_problem(findings, drive, failure.what());
    }
    // Beside partitions, what is left of an older file system means nothing.
    if (request.partitions.empty() && (!findings.table || findings.table->entries.empty())) {
        find_content(findings, drive, descriptor);
    }
}

// The size of the medium; what sysfs says without one is a guess.
std::uint64_t medium_bytes(const ProbeRequest& request, int descriptor)
{
    std::uint64_t sizeBytes = request.drive.sizeBytes;
    if (request.isOptical) {
        const int status = ::ioctl(descriptor, CDROM_DRIVE_STATUS, CDSL_CURRENT);
        return status == CDS_NO_DISC || status == CDS_TRAY_OPEN ? 0 : sizeBytes;
    }
    if (request.isFloppy && ::ioctl(descriptor, BLKGETSIZE64, &sizeBytes) != 0) {
        return 0;
    }
    return sizeBytes;
}

DriveFindings look_at_drive(ProbeRequest request)
{
    DriveFindings findings;
    if (request.drive.sizeBytes == 0 && !request.isFloppy) {
        return findings; // A reader without a card.
    }
    const Descriptor drive = open_device(request, request.drive);
    if (drive.get() < 0) {
        const int error = errno;
        findings.sizeBytes = request.isFloppy ? 0 : request.drive.sizeBytes;
        if (!request.isFloppy) { // It just has no disk in it.
            note_problem(findings, request.drive,
                         "open: " + std::generic_category().message(error));
        }
        return findings;
    }
    request.drive.sizeBytes = findings.sizeBytes = medium_bytes(request, drive.get());
    if (findings.sizeBytes == 0) {
        return findings;
    }
    find_on_drive(findings, request, drive.get());
    for (const DeviceRecord& partition : request.partitions) {
        const Descriptor descriptor = open_device(request, partition);
        if (descriptor.get() < 0) {
            note_problem(findings, partition, "open: " + std::generic_category().message(errno));
        } else {
            find_content(findings, partition, descriptor.get());
        }
    }
    return findings;
}

} // namespace

struct DriveProber::Job {
    ProbeRequest request;
    Clock::time_point end;
    std::shared_ptr<const DriveFindings> findings; ///< Null until it is done.
};

/// Shared with the threads; guards the jobs' outcome, too.
struct DriveProber::Queue {
    std::mutex mutex;
    std::condition_variable jobDone;
    std::deque<std::shared_ptr<Job>> waiting;
};

DriveProber::DriveProber() : queue_(std::make_shared<Queue>())
{
}

std::vector<std::shared_ptr<const DriveFindings>>
DriveProber::probe(const std::vector<ProbeRequest>& requests)
{
    constexpr std::chrono::seconds kLimit(2);
    constexpr std::size_t kMaxThreads = 16;
    std::map<std::string, std::shared_ptr<Job>> latest;
    std::vector<std::shared_ptr<Job>> begun;
    std::unique_lock lock(queue_->mutex);
    for (const ProbeRequest& request : requests) {
        std::shared_ptr<Job> job = jobs_[request.drive.deviceFile];
        if (!job || (job->findings && !isStillTrue(*job, request))) {
            job = std::make_shared<Job>(Job{request, {}, nullptr});
            begun.push_back(job);
        }
        latest[request.drive.deviceFile] = job;
    }
    jobs_ = std::move(latest);
    queue_->waiting.assign(begun.begin(), begun.end());
    for (std::size_t i = 0; i < std::min(kMaxThreads, begun.size()); ++i) {
        std::thread(work, queue_).detach();
    }
    queue_->jobDone.wait_for(lock, kLimit, [&begun] {
        return std::ranges::all_of(begun, [](const auto& job) { return job->findings != nullptr; });
    });

    std::vector<std::shared_ptr<const DriveFindings>> findings;
    findings.reserve(requests.size());
    for (const ProbeRequest& request : requests) {
        findings.push_back(jobs_[request.drive.deviceFile]->findings);
    }
    for (const std::shared_ptr<Job>& job : std::exchange(queue_->waiting, {})) {
        jobs_.erase(job->request.drive.deviceFile); // All threads hang: its turn comes later.
    }
    return findings;
}

// A failure may pass, and a floppy drive does not notice a change of its disk; both cost
// seconds to look at.
bool DriveProber::isStillTrue(const Job& job, const ProbeRequest& request)
{
    constexpr std::chrono::seconds kRetryAfter(15);
    const bool isSettled = job.findings->problems.empty() && !request.isFloppy;
    return !request.stamp.empty() && job.request.stamp == request.stamp &&
           (isSettled || Clock::now() - job.end < kRetryAfter);
}

void DriveProber::work(const std::shared_ptr<Queue>& queue)
{
    std::unique_lock lock(queue->mutex);
    while (!queue->waiting.empty()) {
        const std::shared_ptr<Job> job = queue->waiting.front();
        queue->waiting.pop_front();
        lock.unlock();
        auto findings = std::make_shared<const DriveFindings>(look_at_drive(job->request));
        lock.lock();
        job->findings = std::move(findings);
        job->end = Clock::now();
        queue->jobDone.notify_one();
    }
}
