#pragma once

// What the application and the helper program `driver` agree on (vantrelleplus-driver(1)).
// Neither side says any of it for itself.

namespace driver_protocol {

/// Its arguments, each given as "name=value".
inline constexpr const char* kDevice = "device";
inline constexpr const char* kMode = "mode";
inline constexpr const char* kPattern = "pattern"; ///< As pattern_from_text() reads it.
inline constexpr const char* kSectorsPerTime = "sectorsPerTime";

/// The modes.
inline constexpr const char* kRead = "read";
inline constexpr const char* kWrite = "write";

/// The environment variable that says how much a writing run reads back, and its values; tenth
/// when it is not set.
inline constexpr const char* kVerifyVariable = "VANTRELLE_VERIFY";
inline constexpr const char* kSpot = "spot";
inline constexpr const char* kTenth = "tenth";
inline constexpr const char* kFull = "full";

/// What its lines on standard output begin with: before a percentage, and before the reason of
/// a failure.
inline constexpr const char* kProgress = "progress: ";
inline constexpr const char* kError = "error: ";

} // namespace driver_protocol
