#pragma once

#include "config/value.h"

namespace config {

/// How many lists and objects may lie inside one another, the outermost (a bare member list
/// too) counted. Deeper text is an error. Reading, copying and destroying a tree recurse
/// once a level, and whoever types a text must not be able to exhaust the stack: at this
/// depth an unoptimized build with the address sanitizer stays below 1 MiB.
inline constexpr int kMaxDepth = 1000;

/// Reads a zero-terminated document text, a strict dialect of JSON (RFC 8259):
///
/// - The text is one object, one list, or the members of an object without the braces.
/// - Numbers are an optional "-" and decimal digits. Leading zeros are allowed. There is
///   no range: a number wraps around at 64 bits.
///   See "Numbers have no range" in docs/odd-on-purpose.md.
/// - Strings are bytes; only the double quote, the backslash and zero cannot stand for
///   themselves. Escapes are \" \\ \/ \b \f \n \r \t, \x and two hex digits for any byte,
///   \u and four hex digits for a code point, which becomes UTF-8 by itself (surrogates are
///   not joined).
/// - A comma may follow the last member of an object, but not the last element of a list. The
///   later of two members with the same key counts.
///   See "Commas at the end" in docs/odd-on-purpose.md.
/// - Between tokens, blanks (space, tab, line feed, carriage return) and comments, from
///   "//" to the line's end and from "/*" to "*/", are skipped.
///
/// Returns true when all of the text was read. On an error it returns false and logs, under
/// "config" and with no text, one line for the place and one for each list or object around
/// it. It does not throw for bad text.
///
/// `out` gets the tree once its outermost value is complete and stays as it was before
/// that: with something left over behind the value the result is false and `out` changed.
///
/// `end`, unless null, receives where reading stopped: at the terminating zero, or at the
/// start of a last "//" comment that has no line feed; on an error near its place.
[[nodiscard]] bool load(Value& out, const char* text, const char** end);

} // namespace config
