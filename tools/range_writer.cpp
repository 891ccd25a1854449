#include "tools/range_writer.h"

#include "storage/driver.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

namespace {

// A block can be as large as a quarter GiB, and a write takes long when the system's cache
// is full: blocks are written in pieces, and the event loop gets its turn in between, so
// that the screen answers at once. An interrupted block is still written to its end.
constexpr qint64 kTurnMs = 20;

// So much, or one block, may wait in the system's cache.
constexpr unsigned long long kMaxUnflushedBytes = 32ULL << 20;

} // namespace

RangeWriter::RangeWriter(Driver& driver, std::vector<char> piece, QPointer<QProgressDialog> dialog)
    : driver_(driver), piece_(std::move(piece)), dialog_(std::move(dialog))
{
    sinceTurn_.start();
}

RangeWriter::~RangeWriter()
{
    if (unflushed_.count != 0) {
        static_cast<void>(driver_.flush());
    }
}

bool RangeWriter::takeTurn()
{
    QCoreApplication::processEvents();
    sinceTurn_.start();
    return dialog_ && !dialog_->wasCanceled();
}

std::optional<SectorRange> RangeWriter::write(const SectorRange& block)
{
    if (unflushed_.count == 0) {
        unflushed_.lba = block.lba;
    }
    unflushed_.count += block.count;
    if (!isWritten(block)) {
        return dialog_ ? std::optional(block) : std::nullopt;
    }
    const bool isDue = unflushed_.count * driver_.sectorSize() >= kMaxUnflushedBytes;
    return isDue ? flush() : std::nullopt;
}

std::optional<SectorRange> RangeWriter::flush()
{
    const bool isGood = unflushed_.count == 0 || isFlushed();
    const SectorRange flushed = std::exchange(unflushed_, {});
    return isGood || !dialog_ ? std::nullopt : std::optional(flushed);
}

// Every sector of the piece is alike, so that it serves for all of the block.
bool RangeWriter::isWritten(SectorRange block)
{
    const unsigned long long pieceSectors = piece_.size() / driver_.sectorSize();
    while (block.count > 0) {
        if (sinceTurn_.elapsed() >= kTurnMs) {
            static_cast<void>(takeTurn());
        }
        const unsigned long long sectors = std::min(pieceSectors, block.count);
        if (driver_.writeSectors(block.lba, sectors, piece_.data()) < sectors) {
            return false;
        }
        block.lba += sectors;
        block.count -= sectors;
    }
    return true;
}

// Also when nobody waits any more for the end of the flush.
bool RangeWriter::isFlushed()
{
    std::future<int> error = driver_.flush();
    while (error.wait_for(std::chrono::milliseconds(kTurnMs)) != std::future_status::ready) {
        if (!takeTurn()) {
            return true;
        }
    }
    return error.get() == 0;
}
