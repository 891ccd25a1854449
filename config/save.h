#pragma once

#include "config/value.h"

#include <string>

namespace config {

/// The text of a value, which config::load() reads back to the same tree if the value is an
/// object or a list no deeper than it accepts.
///
/// `bare` leaves out the braces around an object that has members; any other value is
/// written as usual. `pretty` gives each member and element a line of its own, indented by
/// two spaces a level; without it there is no blank at all.
///
/// Members come in ascending byte order of their keys. In strings, what is not printable
/// ASCII and has no escape of its own becomes \x and two lowercase hex digits, so the text
/// is ASCII, and UTF-8 is written byte by byte.
[[nodiscard]] std::string save(const Value& value, bool bare, bool pretty);

} // namespace config
