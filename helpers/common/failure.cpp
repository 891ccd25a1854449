#include "helpers/common/failure.h"

#include <algorithm>

std::string one_line(std::string text)
{
    // Not iscntrl(), which follows the locale.
    const auto isControl = [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
    };
    std::ranges::replace_if(text, isControl, '?');
    return text;
}
