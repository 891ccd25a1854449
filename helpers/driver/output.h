#pragma once

#include <string>

// The lines that the application reads from the driver's standard output. The application
// takes each chunk that it reads as whole lines, so each text goes out in one write(2).

/// Writes the text as it is to standard output. Throws Failure when not all of it could be
/// written, for example because nobody reads any more.
void write_output(const std::string& text);

/// Writes the text as one line that cannot pass for another message; see one_line().
void write_output_line(const std::string& line);

/// Writes a line for the log to standard error: something that is no failure.
void write_note(const std::string& line);
