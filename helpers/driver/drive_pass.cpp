#include "helpers/driver/drive_pass.h"

#include "helpers/common/failure.h"
#include "helpers/driver/bad_sectors.h"
#include "helpers/driver/io_memory.h"
#include "helpers/driver/read_back.h"
#include "helpers/driver/samples.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

namespace {

using Access = TargetDevice::Access;

// What is read is not looked at.
class Reading : public Sweep::Client {
public:
    Reading(const RunPlan& plan, BadSectors& bad) : sectorBytes_(plan.sectorSizeBytes), bad_(bad) {}

    char* memoryFor(const IoRequest& /*request*/, char* slot) override { return slot; }
    void failed(const IoRequest& sector, int error) override
    {
        bad_.add(sector.offsetBytes / sectorBytes_, error);
    }

private:
    std::uint32_t sectorBytes_;
    BadSectors& bad_;
};

// The pattern, with the marks in their places. The slots are full of the pattern.
class Writing : public Sweep::Client {
public:
    Writing(const SweepTools& tools, const Marks& marks, BadSectors& bad)
        : sectorBytes_(tools.plan.sectorSizeBytes), memory_(tools.memory), marks_(marks), bad_(bad)
    {
    }

    char* memoryFor(const IoRequest& request, char* slot) override
    {
        const auto marked = marksIn(request);
        for (const std::uint64_t sector : marked) {
            marks_.fill(sector, slot + (sector * sectorBytes_ - request.offsetBytes));
        }
        return marked.empty() ? memory_.shared() : slot;
    }

    void failed(const IoRequest& sector, int error) override
    {
        const std::uint64_t number = sector.offsetBytes / sectorBytes_;
        bad_.add(number, error);
        if (marks_.contains(number)) {
            failedMarks_.push_back(number);
        }
    }

    void finished(const IoRequest& request) override
    {
        for (const std::uint64_t sector : marksIn(request)) {
            std::memcpy(request.memory + (sector * sectorBytes_ - request.offsetBytes),
                        memory_.pattern(), sectorBytes_);
        }
    }

    /// Those that are on the drive.
    [[nodiscard]] std::vector<std::uint64_t> placedMarks() const
    {
        std::vector<std::uint64_t> placed;
        std::ranges::set_difference(marks_.sectors(), failedMarks_, std::back_inserter(placed));
        return placed;
    }

private:
    [[nodiscard]] std::span<const std::uint64_t> marksIn(const IoRequest& request) const
    {
        return marks_.among(request.offsetBytes / sectorBytes_, request.lengthBytes / sectorBytes_);
    }

    std::uint32_t sectorBytes_;
    IoMemory& memory_;
    const Marks& marks_;
    BadSectors& bad_;
    std::vector<std::uint64_t> failedMarks_; ///< Ascending, as requests finish in order.
};

Marks make_marks(const RunPlan& plan)
{
    return plan.access == Access::Read ? Marks()
                                       : Marks(sectors_to_mark(plan), plan.sectorSizeBytes);
}

} // namespace

DrivePass::DrivePass(const RunPlan& plan, IoMemory& memory, RequestQueue& queue,
                     Progress::Show showPercent)
    : marks_(make_marks(plan)),
      toReadBack_(plan.access == Access::Read ? ByteRanges()
                                              : ranges_to_read_back(plan, marks_.sectors())),
      progress_(plan.sizeBytes + total_bytes(toReadBack_), std::move(showPercent)),
      tools_{plan, memory, queue, progress_}
{
}

void DrivePass::run()
{
    // Before the first write, so that a run that nobody listens to ends here.
    progress_.start();
    if (tools_.plan.access == Access::Read) {
        readAll();
    } else {
        writeAndProve();
    }
    check_size(tools_.plan, tools_.queue, tools_.plan.access);
    progress_.finish();
}

void DrivePass::readAll()
{
    BadSectors bad;
    Reading reading(tools_.plan, bad);
    Sweep(tools_, Access::Read, {{0, tools_.plan.sizeBytes}}, reading).run();
    throwIfAny(bad);
}

void DrivePass::writeAndProve()
{
    BadSectors bad;
    Writing writing(tools_, marks_, bad);
    Sweep(tools_, Access::Write, {{0, tools_.plan.sizeBytes}}, writing).run();

    std::string wrong;
    if (tools_.queue.flush() == 0 && bad.isEmpty()) {
        wrong = ReadBack(tools_, marks_).findLostWrites(toReadBack_);
    }
    // Marks never stay where a sector can be written, whatever was found before.
    const ByteRanges placed = sector_ranges(writing.placedMarks(), tools_.plan.sectorSizeBytes);
    overwrite(placed, bad);
    const int error = tools_.queue.flush();
    throwIfAny(bad);
    if (error != 0) {
        throw system_failure(tools_.plan.name, "flush", error);
    }
    if (wrong.empty()) {
        wrong = ReadBack(tools_, Marks()).findLostWrites(placed);
    }
    if (!wrong.empty()) {
        check_size(tools_.plan, tools_.queue, Access::Read); // says more when it fails
        throw Failure(wrong);
    }
}

void DrivePass::overwrite(const ByteRanges& marks, BadSectors& bad)
{
    const Marks none;
    Writing writing(tools_, none, bad);
    Sweep(tools_, Access::Write, marks, writing).run();
}

void DrivePass::throwIfAny(const BadSectors& bad) const
{
    if (!bad.isEmpty()) {
        const RunPlan& plan = tools_.plan;
        const char* const what = plan.access == Access::Write ? "written" : "read";
        throw Failure(std::to_string(bad.count()) + " sectors could not be " + what + ", " +
                      bad.describeFirst(" of " + plan.name));
    }
}
