#pragma once

#include "posix/descriptor.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Opens a file; `flags` as for open(2), O_CLOEXEC is added. Throws Failure.
[[nodiscard]] Descriptor open_file(const std::string& path, int flags);

/// An empty file without a name that lives in memory. Throws Failure.
[[nodiscard]] Descriptor memory_file();

/// Writes all bytes at a position. Throws Failure, naming `name`.
void write_all(int descriptor, std::string_view bytes, std::uint64_t offsetBytes,
               const std::string& name);

/// Exactly `count` bytes from a position. Throws Failure, also at an early end.
[[nodiscard]] std::string read_exactly(int descriptor, std::size_t count, std::uint64_t offsetBytes,
                                       const std::string& name);

/// The whole content of a regular file. Throws Failure.
[[nodiscard]] std::string read_file(int descriptor, const std::string& name);

/// The number in `count` (up to 4) bytes at a position, the lowest byte first.
[[nodiscard]] std::uint32_t little_endian(std::string_view bytes, std::size_t offset,
                                          std::size_t count);
