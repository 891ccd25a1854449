#include "erase/pattern/pattern.h"

#include "config/load.h"
#include "config/save.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

// A pattern text is written between these two: a document of one member without braces.
constexpr const char* kKey = "pattern";
constexpr std::string_view kOpening = "\"pattern\":\"";
constexpr std::string_view kClosing = "\"";

} // namespace

std::string pattern_from_text(const char* text)
{
    const std::string document = std::string(kOpening) + text + std::string(kClosing);
    config::Value value;
    if (!config::load(value, document.c_str(), nullptr)) {
        return {};
    }
    // A text that leaves its quotes can give the member again, and then of any type.
    const config::Value& pattern = value[kKey];
    return pattern.type() == config::Value::String ? pattern.string() : std::string();
}

std::string pattern_to_text(const std::string& pattern)
{
    config::Value value;
    value.set(kKey, pattern);
    const std::string document = config::save(value, true, false);
    return document.substr(kOpening.size(), document.size() - kOpening.size() - kClosing.size());
}

void pattern_fill_sector(void* sector, unsigned int sectorSize, const void* pattern,
                         unsigned int patternSize)
{
    if (patternSize == 0) {
        std::memset(sector, 0, sectorSize);
        return;
    }
    auto* bytes = static_cast<unsigned char*>(sector);
    for (unsigned int left = sectorSize; left > 0;) {
        const unsigned int length = std::min(left, patternSize);
        std::memcpy(bytes, pattern, length);
        bytes += length;
        left -= length;
    }
}

void pattern_fill_sectors(void* buffer, unsigned int sectorSize, const void* pattern,
                          unsigned int patternSize, unsigned int count)
{
    auto* sector = static_cast<unsigned char*>(buffer);
    for (unsigned int i = 0; i < count; ++i, sector += sectorSize) {
        pattern_fill_sector(sector, sectorSize, pattern, patternSize);
    }
}
