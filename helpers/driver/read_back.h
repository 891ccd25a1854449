#pragma once

#include "helpers/driver/bad_sectors.h"
#include "helpers/driver/sweep.h"

#include <string>

class Marks;

/// Looks at what a drive holds after a writing pass and a flush: a drive that drops writes,
/// or has less room than it says, reports success for every one of them.
class ReadBack : private Sweep::Client {
public:
    /// What was written is the pattern, in these sectors their marks. All must outlive this.
    ReadBack(const SweepTools& tools, const Marks& marks);

    /// Reads the ranges and compares. Gives what is wrong, for the user, or an empty text.
    [[nodiscard]] std::string findLostWrites(const ByteRanges& ranges);

private:
    [[nodiscard]] char* memoryFor(const IoRequest& request, char* slot) override;
    void moved(const IoRequest& part) override;
    void failed(const IoRequest& sector, int error) override;

    void checkMarks(const IoRequest& part);
    [[nodiscard]] std::string describe(const ByteRanges& ranges) const;

    const SweepTools& tools_;
    const Marks& marks_;
    BadSectors lost_;
    BadSectors unreadable_;
};
