#include "storage/other_drive.h"

namespace {

unsigned long long size_bytes(const Drive& drive)
{
    return drive.sectors() * drive.sectorSize();
}

// Two texts of which one may be missing.
bool differ(const std::string& a, const std::string& b)
{
    return !a.empty() && !b.empty() && a != b;
}

bool is_attached_anew(const Drive& listed, const Drive& now)
{
    return listed.diskSequence() != 0 && now.diskSequence() != 0 &&
           listed.diskSequence() != now.diskSequence();
}

bool says_all(const Drive& drive)
{
    return !drive.model().empty() && !drive.serial().empty();
}

} // namespace

bool is_other_drive(const Drive& listed, const Drive& now)
{
    if (differ(listed.model(), now.model()) || differ(listed.serial(), now.serial()) ||
        size_bytes(listed) != size_bytes(now)) {
        return true;
    }
    return is_attached_anew(listed, now) && !(says_all(listed) && says_all(now));
}
