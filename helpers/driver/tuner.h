#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// How requests are made: their size, and how many are on their way at once; one alone is a
/// plain call.
struct Pace {
    std::uint32_t requestBytes = 0;
    std::size_t depth = 1;

    bool operator==(const Pace&) const = default;
};

/// Finds the pace that a drive is fastest at, with the requests of the run itself: each of a
/// handful is tried for a moment, the best is kept, and when the speed falls they are tried again.
class Tuner {
public:
    /// Seconds from any beginning.
    using Clock = std::function<double()>;

    /// The first pace is the usual one: another has to be faster by a twentieth, so that chance
    /// does not decide. A run of few bytes keeps it.
    Tuner(std::vector<Pace> paces, std::uint64_t totalBytes, Clock now);

    /// The pace from now on; called when nothing is on its way.
    [[nodiscard]] Pace choose();

    /// So many bytes came through.
    void finished(std::uint64_t bytes);

    /// Whether choose() wants to be called as soon as nothing is on its way.
    [[nodiscard]] bool isDue() const { return isDue_; }

private:
    [[nodiscard]] double measure();
    [[nodiscard]] bool isHopeless() const;
    void judge(double rate);
    [[nodiscard]] std::size_t fastest() const;

    std::vector<Pace> paces_;
    Clock now_;
    bool isTrying_;
    std::vector<double> rates_; ///< Of the trials so far, in bytes a second; in rounds.
    bool isDue_ = false;

    // Since the last measure(): the first request only starts the clock.
    std::optional<double> start_;
    std::uint64_t bytes_ = 0;
    std::optional<double> usualRate_; ///< Of the first window after the trials.
    int slowWindows_ = 0;
};
