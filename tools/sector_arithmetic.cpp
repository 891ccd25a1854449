#include "tools/sector_arithmetic.h"

#include <algorithm>
#include <cfloat>
#include <limits>

#if FLT_EVAL_METHOD == 2
#include <fpu_control.h>
#endif

namespace {

constexpr unsigned long long kMaxSliderPosition = 999;

// Where the x87 unit computes, it keeps more digits than a double has and so cuts off to
// another whole number now and then. While this object lives it computes as others do
// (Intel SDM volume 1, 8.1.5.2: precision control field).
class DoublePrecision {
#if FLT_EVAL_METHOD == 2
public:
    DoublePrecision()
    {
        _FPU_GETCW(before_);
        fpu_control_t word = (before_ & ~_FPU_EXTENDED) | _FPU_DOUBLE;
        _FPU_SETCW(word);
    }
    ~DoublePrecision()
    {
        _FPU_SETCW(before_);
    }
    DoublePrecision(const DoublePrecision&) = delete;
    DoublePrecision& operator=(const DoublePrecision&) = delete;

private:
    fpu_control_t before_ = 0;
#endif
};

// The compiler must not move the division out of the precision's lifetime.
double ratio(unsigned long long part, unsigned long long whole, int scale)
{
    [[maybe_unused]] const DoublePrecision precision;
    const volatile double quotient = static_cast<double>(part) / static_cast<double>(whole);
    const volatile double scaled = quotient * scale;
    return scaled;
}

} // namespace

unsigned long long last_sector(unsigned long long sectors)
{
    return sectors == 0 ? 0 : sectors - 1;
}

int slider_maximum(unsigned long long lastLba)
{
    return static_cast<int>(std::min(lastLba, kMaxSliderPosition));
}

int slider_position(unsigned long long lba, unsigned long long lastLba, int sliderMaximum)
{
    return static_cast<int>(ratio(lba, lastLba, sliderMaximum));
}

unsigned long long slider_lba(int position, int sliderMaximum, unsigned long long lastLba)
{
    if (sliderMaximum == 0) {
        return 0;
    }
    const long double share =
        static_cast<long double>(position) / static_cast<long double>(sliderMaximum);
    return static_cast<unsigned long long>(share * static_cast<long double>(lastLba));
}

int wipe_progress(unsigned long long lba, unsigned long long totalSectors)
{
    const double percent = ratio(lba, totalSectors, 100);
    return static_cast<int>(std::min<double>(percent, std::numeric_limits<int>::max()));
}

unsigned long long whole_number(double value)
{
    return static_cast<unsigned long long>(value);
}
