#include "helpers/driver/tuner.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t kMiB = 1U << 20U;

// Long enough that what is on its way at the start and the end (8 MiB) does not decide, and
// short beside the run.
constexpr std::uint64_t kMinTrialBytes = 16 * kMiB;
constexpr std::uint64_t kMaxTrialBytes = 32 * kMiB;
constexpr std::uint64_t kTrialsInARun = 64;

// The speed is looked at again after so many trials' bytes.
constexpr std::uint64_t kTrialsInAWindow = 16;
constexpr double kClearlyFaster = 1.05;
constexpr double kHopeless = 1.3; // times as long as the best one took
constexpr double kClearlySlower = 0.7;
constexpr int kSlowWindows = 2; // one can be somebody else's work

} // namespace

Tuner::Tuner(std::vector<Pace> paces, std::uint64_t totalBytes, Clock now)
    : paces_(std::move(paces)), now_(std::move(now)),
      trialBytes_(std::clamp(totalBytes / kTrialsInARun, kMinTrialBytes, kMaxTrialBytes)),
      windowBytes_(trialBytes_ * kTrialsInAWindow)
{
    isTrying_ = paces_.size() > 1 && totalBytes >= kMinTrialBytes * kTrialsInAWindow;
}

Pace Tuner::choose()
{
    const double rate = measure();
    if (isDue_ && isTrying_) {
        rates_.push_back(rate);
        isTrying_ = rates_.size() < paces_.size();
        usualRate_.reset();
    } else if (isDue_) {
        rates_.clear();
        isTrying_ = true;
    }
    isDue_ = false;
    chosen_ = isTrying_ ? rates_.size() : fastest();
    return paces_[chosen_];
}

void Tuner::finished(std::uint64_t bytes)
{
    if (!start_) {
        start_ = now_();
        return;
    }
    bytes_ += bytes;
    if (isTrying_) {
        isDue_ = isDue_ || bytes_ >= trialBytes_ || isHopeless();
    } else if (bytes_ >= windowBytes_) {
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
    return best * (now_() - *start_) > kHopeless * static_cast<double>(trialBytes_);
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
    if (rates_.size() < paces_.size()) {
        return 0;
    }
    const auto best = std::ranges::max_element(rates_);
    const bool isClear = *best > rates_.front() * kClearlyFaster;
    return isClear ? static_cast<std::size_t>(best - rates_.begin()) : 0;
}
