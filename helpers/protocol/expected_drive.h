#pragma once

/// The environment variable that tells both helper programs which attachment of a drive they are
/// to work on: its disk sequence number (ioctl BLKGETDISKSEQ). They refuse a device with another.
inline constexpr const char* kExpectedDiskSequence = "VANTRELLE_DISKSEQ";

/// The one that tells them the drive's size in bytes; a regular file in its stead is compared, too.
inline constexpr const char* kExpectedSizeBytes = "VANTRELLE_SIZE";
