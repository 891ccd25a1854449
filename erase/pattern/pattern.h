#pragma once

#include <string>

// A wipe pattern is the sequence of bytes that a wipe writes over sectors. People type it
// as the inside of a double-quoted string of a document (config/load.h): printable bytes
// stand for themselves, "\x" and two hex digits are any byte.

/// The pattern text of a wipe when nobody chose another.
inline constexpr const char* kDefaultPattern = "VANTRELLE";

/// The bytes of a pattern text; empty when the text is empty or is not a valid string body.
/// A double quote in the text ends the string, and what follows is read as the rest of the
/// document: `a","pattern":"b` is a valid text for "b".
[[nodiscard]] std::string pattern_from_text(const char* text);

/// The text that pattern_from_text() turns into these bytes again.
[[nodiscard]] std::string pattern_to_text(const std::string& pattern);

/// Fills one sector with the pattern over and over, the last time cut off at the sector's
/// end. An empty pattern stands for zeros. Sizes are in bytes.
void pattern_fill_sector(void* sector, unsigned int sectorSize, const void* pattern,
                         unsigned int patternSize);

/// Fills `count` sectors that follow one another. The pattern starts anew in each, so that every
/// sector of a wiped drive is the same and can be checked by itself.
void pattern_fill_sectors(void* buffer, unsigned int sectorSize, const void* pattern,
                          unsigned int patternSize, unsigned int count);
