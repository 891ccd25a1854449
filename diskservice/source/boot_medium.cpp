#include "diskservice/source/boot_medium.h"

#include <algorithm>
#include <fstream>
#include <string_view>

namespace {

// GRUB and libblkid write the digits of some file systems' UUIDs in different cases.
std::string lower_case(std::string text)
{
    std::ranges::transform(text, text.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return text;
}

} // namespace

void MediumSigns::addFileSystem(const Content& content, bool isInPartition)
{
    if (!(isInPartition && content.type == "iso9660")) {
        uuids_.insert(lower_case(content.uuid));
    }
    if (isInPartition) {
        addPartitionLabel(content.label);
    }
}

bool MediumSigns::hasUuid(const std::string& uuid) const
{
    return !uuid.empty() && uuids_.contains(lower_case(uuid));
}

BootMedium::BootMedium(const std::string& root)
{
    constexpr std::string_view kName = "vantrelle.medium=";
    std::ifstream file(root + "/proc/cmdline");
    for (std::string word; file >> word;) {
        if (word.starts_with(kName)) {
            uuid_ = word.substr(kName.size());
        }
    }
}

std::string BootMedium::reasonFor(const DeviceRecord& drive, const MediumSigns& signs)
{
    if (!uuid_ || drive.isSystemInternal) {
        return {};
    }
    std::string reason;
    if (signs.hasUuid(*uuid_)) {
        reason = "the running system was started from it (vantrelle.medium=" + *uuid_ + ')';
    } else if (signs.isOfSeveralImages()) {
        reason = "it starts one of several images, maybe the running system (VTOYEFI)";
    }
    isFound_ = isFound_ || !reason.empty();
    return reason;
}

bool BootMedium::canBe(const DeviceRecord& drive) const
{
    return uuid_ && !isFound_ && !drive.isSystemInternal;
}
