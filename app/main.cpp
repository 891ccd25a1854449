#include "app/command_line.h"
#include "app/debug_log.h"
#include "app/main_window.h"
#include "app/program_config.h"
#include "app/window_focus.h"

#include <QApplication>

namespace {

// The toolkit version that the program tells the application object it was written for.
constexpr int kToolkitVersion = 0x040806;

void settle_library_directory()
{
    if (!theProgramConfig().lib().empty()) {
        return;
    }
    const QString lib =
        QCoreApplication::applicationDirPath() + QLatin1Char(DIR_SEPARATOR) + QLatin1String("lib");
    theProgramConfig().setLib(lib.toStdString());
}

} // namespace

int main(int argc, char** argv)
{
    QApplication application(argc, argv, kToolkitVersion);
    const StartupOptions options = read_command_line(argc, argv);
    dbg_init(options.debugType.c_str(), 1);
    dbg_ostream() << "*** " << theProgramConfig().name() << " ***" << Qt::endl;
    settle_library_directory();
    WindowFocus windowFocus;
    application.installEventFilter(&windowFocus);
    MainWindow window(nullptr, options.desktop);
    return QApplication::exec();
}
