#pragma once

#include <string>

// The lines that the application reads from the driver's standard output. The application
// takes each chunk that it reads as whole lines, so each text goes out in one write(2).

/// Writes the text as it is to standard output. Throws Failure when not all of it could be
/// written, for example because nobody reads any more.
void write_output(const std::string& text);

/// Writes one line; control characters in `line` (a path can hold any byte) become "?", so
/// that it stays one line and cannot pass for another message.
void write_output_line(std::string line);
