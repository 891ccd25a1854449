#pragma once

/// The environment variable that tells both helper programs which attachment of a drive they are
/// to work on: its disk sequence number (ioctl BLKGETDISKSEQ). They refuse a device with another.
inline constexpr const char* kExpectedDiskSequence = "VANTRELLE_DISKSEQ";
