#include "helpers/driver/tuner.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t kMiB = 1U << 20U;

// Long enough that what is on its way at the start and the end (8 MiB) does not decide.
constexpr std::uint64_t kTrialBytes = 16 * kMiB;

// Each pace is tried twice, as somebody else's work can disturb one.
constexpr std::size_t kRounds = 2;

// A shorter run would spend too much of itself on trials.
constexpr std::uint64_t kMinTunedBytes = 1024 * kMiB;

// The speed is looked at again after so many bytes.
constexpr std::uint64_t kWindowBytes = 256 * kMiB;
constexpr double kClearlyFaster = 1.05;
constexpr double kHopeless = 1.3; // times as long as the best one took
constexpr double kClearlySlower = 0.7;
constexpr int kSlowWindows = 2; // one can be somebody else's work

} // namespace

Tuner::Tuner(std::vector<Pace> paces, std::uint64_t totalBytes, Clock now)
    : paces_(std::move(paces)), now_(std::move(now)),
      isTrying_(paces_.size() > 1 && totalBytes >= kMinTunedBytes)
{
}

Pace Tuner::choose()
{
    const double rate = measure();
    if (isDue_ && isTrying_) {
        rates_.push_back(rate);
        isTrying_ = rates_.size() < kRounds * paces_.size();
        usualRate_.reset();
    } else if (isDue_) {
        rates_.clear();
        isTrying_ = true;
    }
    isDue_ = false;
    return paces_[isTrying_ ? rates_.size() % paces_.size() : fastest()];
}

void Tuner::finished(std::uint64_t bytes)
{
    if (!start_) {
        start_ = now_();
        return;
    }
    bytes_ += bytes;
    if (isTrying_) {
        isDue_ = isDue_ || bytes_ >= kTrialBytes || isHopeless();
    } else if (bytes_ >= kWindowBytes) {
        judge(measure());
        start_ = now_();
    }
}

double Tuner::measure()
{
    const double seconds = start_ ? now_() - *start_ : 0;
    start_.reset();
    const std::uint64_t bytes = std::exchange(bytes_, 0);
    return seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
}

// A slow one is not tried to its end: it would cost more than it can tell.
bool Tuner::isHopeless() const
{
    const double best = rates_.empty() ? 0 : *std::ranges::max_element(rates_);
    return best * (now_() - *start_) > kHopeless * static_cast<double>(kTrialBytes);
}

void Tuner::judge(double rate)
{
    const double usual = usualRate_.value_or(rate);
    usualRate_ = usual;
    slowWindows_ = rate < usual * kClearlySlower ? slowWindows_ + 1 : 0;
    if (slowWindows_ == kSlowWindows && paces_.size() > 1) {
        slowWindows_ = 0;
        isDue_ = true;
    }
}

std::size_t Tuner::fastest() const
{
    std::vector<double> best(paces_.size());
    for (std::size_t trial = 0; trial < rates_.size(); ++trial) {
        double& rate = best[trial % best.size()];
        rate = std::max(rate, rates_[trial]);
    }
    const auto fastest = std::ranges::max_element(best);
    const bool isClear = *fastest > best.front() * kClearlyFaster;
    return isClear ? static_cast<std::size_t>(fastest - best.begin()) : 0;
}
