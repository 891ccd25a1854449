#pragma once

// The arithmetic between sector numbers and the controls that show them. It gives the same
// numbers on every processor; all results are cut off, not rounded.

/// No drive has larger sectors, in bytes; a drive that says so is not touched.
inline constexpr unsigned long long kMaxSectorSize = 1U << 20U;

/// The last sector's number; 0 for an empty drive.
[[nodiscard]] unsigned long long last_sector(unsigned long long sectors);

/// The highest slider position: one position a sector, but never more than 1000.
[[nodiscard]] int slider_maximum(unsigned long long lastLba);

/// Where the slider stands for a sector. `lastLba` must not be 0.
[[nodiscard]] int slider_position(unsigned long long lba, unsigned long long lastLba,
                                  int sliderMaximum);

/// The sector for a slider position; 0 when the slider cannot move.
[[nodiscard]] unsigned long long slider_lba(int position, int sliderMaximum,
                                            unsigned long long lastLba);

/// The wipe's progress value: the absolute sector in percent of the sectors to wipe. With a
/// later start it runs ahead and beyond 99, where the progress bar stays.
/// See "Progress by absolute sector" in docs/odd-on-purpose.md.
[[nodiscard]] int wipe_progress(unsigned long long lba, unsigned long long totalSectors);

/// A number field's value as a sector number.
[[nodiscard]] unsigned long long whole_number(double value);
