#include "helpers/driver/progress.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned kAllDone = 100;

} // namespace

Progress::Progress(std::uint64_t totalBytes, Show show)
    : totalBytes_(totalBytes), show_(std::move(show))
{
}

void Progress::start()
{
    show(0);
}

void Progress::add(std::uint64_t bytes)
{
    doneBytes_ += bytes;
    // Does not overflow below 184 petabytes.
    const auto percent = static_cast<unsigned>(doneBytes_ * kAllDone / totalBytes_);
    show(std::min(percent, kAllDone - 1));
}

void Progress::finish()
{
    show(kAllDone);
}

void Progress::show(unsigned percent)
{
    if (percent != shown_) {
        show_(percent);
    }
    shown_ = percent;
}
