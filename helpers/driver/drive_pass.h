#pragma once

#include "helpers/driver/marks.h"
#include "helpers/driver/progress.h"
#include "helpers/driver/run_plan.h"
#include "helpers/driver/sweep.h"

class BadSectors;

/// Goes over a drive once, from the first byte to the last, and proves afterwards that what
/// was written is there.
class DrivePass {
public:
    /// The memory holds the pattern when the plan is to write. All references must outlive
    /// the pass. `showPercent` gets 100 only at the end of run().
    DrivePass(const RunPlan& plan, IoMemory& memory, RequestQueue& queue,
              Progress::Show showPercent);

    /// Throws Failure unless all of the drive was read, or written, flushed and found there:
    /// at once when the drive has gone or its size changed, else at the end.
    void run();

private:
    void readAll();
    void writeAndProve();
    void overwrite(const ByteRanges& marks, BadSectors& bad);
    void throwIfAny(const BadSectors& bad) const;

    Marks marks_; ///< None when the plan is to read.
    ByteRanges toReadBack_;
    Progress progress_;
    SweepTools tools_;
};
