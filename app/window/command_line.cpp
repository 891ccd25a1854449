#include "app/window/command_line.h"

#include "app/base/debug_log.h"
#include "app/base/program_config.h"

#include <QCoreApplication>

#include <algorithm>
#include <string_view>

namespace {

constexpr std::string_view kLib = "lib=";
constexpr std::string_view kDbg = "dbg=";
constexpr std::string_view kDesktop = "desktop";

// Two more than "lib=" has: "lib=xx/opt/wipe" sets "/opt/wipe".
// See "Six characters after lib=" in docs/odd-on-purpose.md.
constexpr std::size_t kLibSkip = 6;

} // namespace

StartupOptions read_command_line(int argc, const char* const* argv)
{
    StartupOptions options{DBG_TYPE_STRING, false};
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.starts_with(kLib)) {
            theProgramConfig().setLib(
                std::string(argument.substr(std::min(kLibSkip, argument.size()))));
        } else if (argument.starts_with(kDbg)) {
            options.debugType = argument.substr(kDbg.size());
        } else if (argument == kDesktop) {
            options.desktop = true;
        }
    }
    return options;
}

void settle_library_directory()
{
    if (!theProgramConfig().lib().empty()) {
        return;
    }
    const QString lib =
        QCoreApplication::applicationDirPath() + QLatin1Char(DIR_SEPARATOR) + QLatin1String("lib");
    theProgramConfig().setLib(lib.toStdString());
}
