#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QProgressDialog>

#include <optional>
#include <vector>

class Driver;

/// Consecutive sectors.
struct SectorRange {
    unsigned long long lba = 0;
    unsigned long long count = 0;
};

/// Writes the blocks of a sector wipe and brings them to the medium, while the event loop gets
/// its turns, so that the progress dialog answers at once. The dialog may be interrupted or go in
/// each of them.
class RangeWriter {
public:
    /// The piece is whole sectors, all alike, to be written over and over. The driver must outlive
    /// this.
    RangeWriter(Driver& driver, std::vector<char> piece, QPointer<QProgressDialog> dialog);
    /// Brings what is left to the medium; nobody waits for it.
    ~RangeWriter();
    RangeWriter(const RangeWriter&) = delete;
    RangeWriter& operator=(const RangeWriter&) = delete;

    /// Gives the event loop a turn; false when the user interrupted the run or its dialog has gone.
    [[nodiscard]] bool takeTurn();

    /// Writes a block to its end, and now and then flushes. Gives what failed: the block, or all
    /// that was written since the last flush; nothing also when nobody can be asked any more.
    [[nodiscard]] std::optional<SectorRange> write(const SectorRange& block);

    /// Brings all to the medium that write() has not; gives what failed, as write() does.
    [[nodiscard]] std::optional<SectorRange> flush();

private:
    [[nodiscard]] bool isWritten(SectorRange block);
    [[nodiscard]] bool isFlushed();

    Driver& driver_;
    std::vector<char> piece_;
    QPointer<QProgressDialog> dialog_;
    QElapsedTimer sinceTurn_;
    SectorRange unflushed_;
};
