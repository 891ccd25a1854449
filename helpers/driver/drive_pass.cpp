#include "helpers/driver/drive_pass.h"

#include "helpers/common/failure.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/read_back.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <utility>

namespace {

constexpr unsigned kAllDone = 100;

// Measured with requests of 2 MiB on a loop device over memory, two cores: 2 on their way gave
// 7.5 GB/s, 4 gave 6.6, 8 gave 9.6, 16 gave 7.2, 32 gave 7.9; with requests of 256 KiB none
// came above 7.
constexpr std::size_t kDepth = 8;

// Of 1400 sectors, all but two at random, none lies in a lost hundredth of the drive once in
// 1.27 million runs: 0.99^1398 = 7.9e-7.
constexpr std::uint64_t kSamples = 1400;

const char* verb(TargetDevice::Access access)
{
    return access == TargetDevice::Access::Write ? "write" : "read";
}

const char* participle(TargetDevice::Access access)
{
    return access == TargetDevice::Access::Write ? "written" : "read";
}

} // namespace

DrivePass::DrivePass(const RunPlan& plan, Marks marks, const IoMemory& memory, RequestQueue& queue,
                     ShowPercent showPercent)
    : plan_(plan), marks_(std::move(marks)), memory_(memory), queue_(queue),
      showPercent_(std::move(showPercent))
{
}

void DrivePass::run()
{
    // Before the first write, so that a run that nobody listens to ends here.
    showProgress(0);
    run_requests(
        queue_, kDepth, [this](std::size_t slot) { return nextRequest(slot); },
        [this](const IoRequest& request, ssize_t moved) { finishRequest(request, moved); });
    if (plan_.access == TargetDevice::Access::Write) {
        finishWriting();
    }
    checkSize();
    throwIfAnyBad();
    showPercent_(kAllDone);
}

std::optional<IoRequest> DrivePass::nextRequest(std::size_t slot)
{
    placeMarks();
    if (nextOffset_ == plan_.sizeBytes) {
        return std::nullopt;
    }
    // Each time: writing would silently make a file that was cut short as long as before.
    checkSize();
    const std::uint64_t offset = std::exchange(nextOffset_, requestEnd(nextOffset_));
    char* const memory = plan_.access == TargetDevice::Access::Read
                             ? memory_.part(slot, plan_.requestBytes)
                             : memory_.request();
    return IoRequest{plan_.access, offset, static_cast<std::size_t>(nextOffset_ - offset), memory};
}

// Requests end at multiples of their size also behind a mark, so that they stay aligned to the
// physical sectors. The trailing part of a sector is one of its own: it cannot be direct I/O.
std::uint64_t DrivePass::requestEnd(std::uint64_t offset) const
{
    const std::uint64_t wholeSectors = plan_.sectorCount() * plan_.sectorSizeBytes;
    if (offset == wholeSectors) {
        return plan_.sizeBytes;
    }
    const auto mark = marks_.firstFrom(offset / plan_.sectorSizeBytes);
    const std::uint64_t end = mark ? *mark * plan_.sectorSizeBytes : wholeSectors;
    return std::min(end, offset - offset % plan_.requestBytes + plan_.requestBytes);
}

void DrivePass::placeMarks()
{
    const std::uint32_t length = plan_.sectorSizeBytes;
    for (; marks_.contains(nextOffset_ / length); nextOffset_ += length) {
        checkSize();
        const std::uint64_t sector = nextOffset_ / length;
        std::ranges::copy(marks_.content(sector), memory_.sector(0));
        if (isMoved({plan_.access, nextOffset_, length, memory_.sector(0)})) {
            placedMarks_.push_back(sector);
        }
    }
}

// Marks never stay where a sector can be written, whatever was found before.
void DrivePass::overwriteMarks()
{
    const std::uint32_t length = plan_.sectorSizeBytes;
    for (const std::uint64_t sector : placedMarks_) {
        static_cast<void>(isMoved({plan_.access, sector * length, length, memory_.request()}));
    }
}

void DrivePass::finishWriting()
{
    ReadBack readBack(plan_, memory_, queue_);
    std::string lost;
    if (queue_.flush() == 0 && badSectors_ == 0) {
        lost = readBack.findLostWrites(sampleSectors(), marks_);
    }
    overwriteMarks();
    const int error = queue_.flush();
    if (badSectors_ != 0) {
        return; // tells more
    }
    if (error != 0) {
        throw system_failure(plan_.name, "flush", error);
    }
    if (lost.empty()) {
        lost = readBack.findLostWrites(placedMarks_, Marks());
    }
    if (!lost.empty()) {
        checkSize(); // says more when it fails
        throw Failure(lost);
    }
}

std::vector<std::uint64_t> DrivePass::sampleSectors() const
{
    std::vector<std::uint64_t> all;
    std::ranges::set_union(spread_sectors(plan_.sectorCount(), kSamples), marks_.sectors(),
                           std::back_inserter(all));
    return all;
}

void DrivePass::finishRequest(const IoRequest& request, ssize_t moved)
{
    if (moved < 0) {
        throwIfGone(static_cast<int>(-moved));
    }
    if (moved < static_cast<ssize_t>(request.lengthBytes)) {
        redoBySteps(request);
    }
    showProgress(request.offsetBytes + request.lengthBytes);
}

void DrivePass::redoBySteps(const IoRequest& failed)
{
    for (std::size_t done = 0; done < failed.lengthBytes; done += plan_.stepBytes) {
        IoRequest step = failed;
        step.offsetBytes += done;
        step.lengthBytes = std::min<std::size_t>(plan_.stepBytes, failed.lengthBytes - done);
        if (transferWhole(step) != 0) {
            redoBySectors(step);
        }
    }
}

void DrivePass::redoBySectors(const IoRequest& failed)
{
    for (std::size_t done = 0; done < failed.lengthBytes; done += plan_.sectorSizeBytes) {
        IoRequest sector = failed;
        sector.offsetBytes += done;
        sector.lengthBytes =
            std::min<std::size_t>(plan_.sectorSizeBytes, failed.lengthBytes - done);
        static_cast<void>(isMoved(sector));
    }
}

bool DrivePass::isMoved(const IoRequest& sector)
{
    const int error = transferWhole(sector);
    if (error != 0) {
        passOver(sector.offsetBytes, error);
    }
    return error == 0;
}

int DrivePass::transferWhole(IoRequest request)
{
    while (request.lengthBytes > 0) {
        const ssize_t moved = queue_.transfer(request);
        if (moved <= 0) {
            const int error = moved < 0 ? static_cast<int>(-moved) : EIO;
            throwIfGone(error);
            return error;
        }
        request.offsetBytes += static_cast<std::uint64_t>(moved);
        request.memory += moved;
        request.lengthBytes -= static_cast<std::size_t>(moved);
    }
    return 0;
}

void DrivePass::throwIfAnyBad() const
{
    if (badSectors_ != 0) {
        throw Failure(std::to_string(badSectors_) + " sectors could not be " +
                      participle(plan_.access) + ", first at sector " +
                      std::to_string(firstBadSector_) + " of " + plan_.name + ": " +
                      std::generic_category().message(firstError_));
    }
}

void DrivePass::passOver(std::uint64_t offset, int error)
{
    const std::uint64_t sector = offset / plan_.sectorSizeBytes;
    // Marks are written ahead of the requests on their way.
    if (badSectors_++ == 0 || sector < firstBadSector_) {
        firstBadSector_ = sector;
        firstError_ = error;
    }
}

// A drive that was pulled out fails with one of these, or with EIO and no size left.
void DrivePass::throwIfGone(int error) const
{
    if (error == ENODEV || error == ENXIO) {
        throw system_failure(plan_.name, verb(plan_.access), error);
    }
    checkSize();
}

void DrivePass::checkSize() const
{
    const std::uint64_t size = queue_.currentSizeBytes();
    if (size == plan_.sizeBytes) {
        return;
    }
    const std::string start = plan_.name + ": " + verb(plan_.access) + ": ";
    if (size == 0) {
        throw Failure(start + "the device has gone");
    }
    throw Failure(start + "the size changed from " + std::to_string(plan_.sizeBytes) + " to " +
                  std::to_string(size) + " bytes");
}

void DrivePass::showProgress(std::uint64_t doneBytes)
{
    // Does not overflow below 184 petabytes.
    const auto percent = static_cast<unsigned>(doneBytes * kAllDone / plan_.sizeBytes);
    const unsigned shown = std::min(percent, kAllDone - 1);
    if (shown != shownPercent_) {
        showPercent_(shown);
    }
    shownPercent_ = shown;
}
