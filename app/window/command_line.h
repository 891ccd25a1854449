#pragma once

#include <string>

/// What the command line says beyond the program settings.
struct StartupOptions {
    std::string debugType; ///< For dbg_init().
    bool desktop = false;  ///< Frameless, as large as the screen.
};

/// Reads "lib=" (stored into the program settings at once), "dbg=" and "desktop"; of the
/// same kind the last one counts. There are no errors: anything else is ignored.
[[nodiscard]] StartupOptions read_command_line(int argc, const char* const* argv);

/// Makes "lib" beside the executable the library directory when the command line named none.
void settle_library_directory();
