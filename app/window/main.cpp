#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "app/window/command_line.h"
#include "app/window/main_window.h"
#include "app/window/window_minder.h"

#include <QApplication>
#include <QFontDatabase>

#include <future>

namespace {

// The toolkit version that the program tells the application object it was written for. It stays
// that of the released screens: a newer number would only promise that newer habits were seen to.
constexpr int kToolkitVersion = 0x040806;

// The first text to be measured has to wait for the list of fonts, a good part of the start: a
// second processor reads it while the forms are built.
std::future<void> read_fonts()
{
    return std::async(std::launch::async, [] { static_cast<void>(QFontDatabase::families()); });
}

// Looking for a screen reader, the toolkit would start a message bus for the session where there
// is none, and that bus would outlive the program (dbus-launch(1)). A running one is still found.
void keep_from_starting_session_bus()
{
    const char* const address = "DBUS_SESSION_BUS_ADDRESS";
    if (!qEnvironmentVariableIsSet(address)) {
        qputenv(address, "unix:runtime=yes");
    }
}

} // namespace

int main(int argc, char** argv)
{
    keep_from_starting_session_bus();
    QApplication application(argc, argv, kToolkitVersion);
    const std::future<void> fonts = read_fonts();
    const StartupOptions options = read_command_line(argc, argv);
    dbg_init(options.debugType.c_str(), 1);
    // See "A banner without a tag" in docs/odd-on-purpose.md.
    dbg_ostream() << "*** " << theProgramConfig().name() << " ***" << Qt::endl;
    settle_library_directory();
    WindowMinder windowMinder;
    application.installEventFilter(&windowMinder);
    MainWindow window(nullptr, options.desktop);
    return QApplication::exec();
}
