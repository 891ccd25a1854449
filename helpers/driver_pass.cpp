#include "helpers/driver_pass.h"

#include "helpers/failure.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

constexpr unsigned kAllDone = 100;

const char* verb(TargetDevice::Access access)
{
    return access == TargetDevice::Access::Write ? "write" : "read";
}

const char* participle(TargetDevice::Access access)
{
    return access == TargetDevice::Access::Write ? "written" : "read";
}

} // namespace

Pass::Pass(PassPlan plan, PassTarget& target, ShowPercent showPercent)
    : plan_(std::move(plan)), target_(target), showPercent_(std::move(showPercent))
{
}

void Pass::run()
{
    // Before the first write, so that a run that nobody listens to ends here.
    showProgress(0);
    for (std::uint64_t offset = 0; offset < plan_.sizeBytes;) {
        const std::size_t length = stepLength(offset);
        runStep(offset, length);
        offset += length;
        showProgress(offset);
    }
    finish();
}

// The trailing part of a sector is a step of its own, as it cannot be direct I/O.
std::size_t Pass::stepLength(std::uint64_t offset) const
{
    const std::uint64_t wholeSectors = plan_.sizeBytes - plan_.sizeBytes % plan_.sectorSizeBytes;
    const std::uint64_t end = offset < wholeSectors ? wholeSectors : plan_.sizeBytes;
    return static_cast<std::size_t>(std::min<std::uint64_t>(plan_.stepBytes, end - offset));
}

void Pass::runStep(std::uint64_t offset, std::size_t length)
{
    // Each time: writing would silently make a file that was cut short as long as before.
    checkSize();
    const ssize_t moved = target_.transfer(offset, length);
    if (moved >= 0 && static_cast<std::size_t>(moved) == length) {
        return;
    }
    if (moved < 0) {
        throwIfGone(static_cast<int>(-moved));
    }
    for (std::size_t done = 0; done < length; done += plan_.sectorSizeBytes) {
        runSector(offset + done, std::min<std::size_t>(plan_.sectorSizeBytes, length - done));
    }
}

void Pass::runSector(std::uint64_t offset, std::size_t length)
{
    for (std::size_t done = 0; done < length;) {
        const ssize_t moved = target_.transfer(offset + done, length - done);
        if (moved <= 0) {
            passOver(offset, moved < 0 ? static_cast<int>(-moved) : EIO);
            return;
        }
        done += static_cast<std::size_t>(moved);
    }
}

void Pass::finish()
{
    if (const int error = target_.flush(); error != 0) {
        throw system_failure(plan_.path, "flush", error);
    }
    checkSize();
    if (badSectors_ != 0) {
        throw Failure(std::to_string(badSectors_) + " sectors could not be " +
                      participle(plan_.access) + ", first at sector " +
                      std::to_string(firstBadSector_) + ": " +
                      std::system_category().message(firstError_));
    }
    showPercent_(kAllDone);
}

void Pass::passOver(std::uint64_t offset, int error)
{
    throwIfGone(error);
    if (badSectors_++ == 0) {
        firstBadSector_ = offset / plan_.sectorSizeBytes;
        firstError_ = error;
    }
}

// A drive that was pulled out fails with one of these, or with EIO and no size left.
void Pass::throwIfGone(int error) const
{
    if (error == ENODEV || error == ENXIO) {
        throw system_failure(plan_.path, verb(plan_.access), error);
    }
    checkSize();
}

void Pass::checkSize() const
{
    const std::uint64_t size = target_.currentSizeBytes();
    if (size == plan_.sizeBytes) {
        return;
    }
    const std::string start = plan_.path + ": " + verb(plan_.access) + ": ";
    if (size == 0) {
        throw Failure(start + "the device has gone");
    }
    throw Failure(start + "the size changed from " + std::to_string(plan_.sizeBytes) + " to " +
                  std::to_string(size) + " bytes");
}

void Pass::showProgress(std::uint64_t doneBytes)
{
    // Does not overflow below 184 petabytes.
    const auto percent = static_cast<unsigned>(doneBytes * kAllDone / plan_.sizeBytes);
    const unsigned shown = std::min(percent, kAllDone - 1);
    if (shown != shownPercent_) {
        showPercent_(shown);
    }
    shownPercent_ = shown;
}
