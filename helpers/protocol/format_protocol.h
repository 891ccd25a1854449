#pragma once

// What the application and the helper program `format` agree on (vantrelleplus-format(1)): two
// arguments, device and picture.

namespace format_protocol {

/// Joined to the device without a separator: check everything, write nothing.
inline constexpr const char* kEmulateSuffix = "-emulate";

} // namespace format_protocol
