#include "helpers/driver/bad_sectors.h"

#include <system_error>

void BadSectors::add(std::uint64_t sector, int error)
{
    if (count_++ == 0 || sector < first_) {
        first_ = sector;
        error_ = error;
    }
}

std::string BadSectors::describeFirst(const std::string& addition) const
{
    const std::string reason =
        error_ == 0 ? std::string() : ": " + std::generic_category().message(error_);
    return "first at sector " + std::to_string(first_) + addition + reason;
}
