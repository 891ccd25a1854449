#pragma once

#include "storage/drive.h"

#include <QString>

#include <iosfwd>
#include <string>

class QLayout;
class QWidget;

// The text forms in which the screens show sizes, counts, times, drives and raw bytes, and
// two small helpers of the screens. See "Sizes, numbers and times" in docs/odd-on-purpose.md.

/// A size in decimal units, whole numbers only, cut off: "999", "1KB", "500GB", "1000TB".
[[nodiscard]] QString short_size_string(unsigned long long bytes);

/// A decimal number with a comma before every third digit from the right. The minus sign
/// counts as a digit: -123 gives "-,123".
[[nodiscard]] QString number_with_commas_string(long long n);

/// "hh:mm:ss", at least two digits each; hours go on beyond 99.
[[nodiscard]] QString hms_time_string(long long seconds);

/// Writes bytes as lines of `width` bytes (at least 1): offset, hexadecimal values,
/// characters. The stream's fill character is "0" afterwards; its flags are restored.
void hex_dump(std::ostream& os, const void* data, unsigned size, unsigned width);

/// The same as a text.
[[nodiscard]] std::string hex_dump(const void* data, unsigned size, unsigned width);

/// A drive as a heading: model, serial and number of sectors as rich text. Markup in what
/// the drive reports is shown, not followed.
[[nodiscard]] QString drive_label(const Drive& drive);

/// A drive in a row or a message: size and model as plain text.
[[nodiscard]] QString drive_string_short(const Drive& drive);

/// Asks before anything is overwritten. True only when Yes was pressed.
[[nodiscard]] bool confirm_media_overwriting(QWidget* parent, const QString& title);

/// Takes every item out of a layout and its sub-layouts and deletes the widgets. The items and the
/// emptied sub-layouts are not deleted: whoever holds a sub-layout can fill it again.
void clear_layout(QLayout* layout);
