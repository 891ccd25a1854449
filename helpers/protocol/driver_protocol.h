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

/// What its lines on standard output begin with: before a percentage, and before the reason of
/// a failure.
inline constexpr const char* kProgress = "progress: ";
inline constexpr const char* kError = "error: ";

} // namespace driver_protocol
