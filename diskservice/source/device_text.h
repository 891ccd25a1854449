#pragma once

#include <QString>

#include <string>

// What drives and file systems say of themselves is any bytes. Here they become text for the bus
// and for the log: valid UTF-8 is taken as such, all else as Latin-1, which can hold any byte. The
// bus cuts off whoever sends what is no UTF-8; and a line feed would forge a line of the log and
// lengthen a row of the screen, so that each character that is not printed (controls, line and
// paragraph separators, what turns the direction of writing, what Unicode has not assigned)
// becomes a question mark.

/// Whether every character is one that is printed. A file name has to be: whoever is told another
/// one cannot open the file.
bool is_printable(const std::string& bytes);

/// Text of any length, for file names and messages.
QString printable_text(const std::string& bytes);

/// What a device holds, such as its model or a label: cut off after 256 characters, which no
/// drive's standard comes near.
QString device_text(const std::string& bytes);
