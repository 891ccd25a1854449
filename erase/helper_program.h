#pragma once

#include <QString>

/// The path of a helper program in the library directory.
[[nodiscard]] QString helper_program(const char* name);
