#pragma once

#include "helpers/format/arguments.h"

/// Does what was asked for. Throws Failure; it returns normally only after everything was
/// written, flushed and read back (or, when emulating, checked).
void run_format(const FormatArguments& arguments);
