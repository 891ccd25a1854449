// Erases image files side by side under the main window, with the real disk service and the
// real `driver`. Prints the seconds; the longest time between two turns of the event loop in
// ms: when starting, while all are being erased, from the first end to the last; and the share
// of one processor core in % while all are being erased.
//     many_drives IMAGE...
#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "app/window/main_window.h"
#include "tests/support/private_bus.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace {

constexpr int kBeatMs = 10;
constexpr int kCountdownTicks = 11; // the last one starts the helpers

void start_erasing(const MainWindow& window, QElapsedTimer& sinceTurn)
{
    for (int tick = 0; tick < kCountdownTicks; ++tick) {
        sinceTurn.start();
        QMetaObject::invokeMethod(window.findChild<QWidget*>("WorkWidget"), "countdownTimeout");
    }
}

void measure(const MainWindow& window, qsizetype driveCount)
{
    const auto bars =
        window.findChild<QTreeWidget*>("drivesTreeWidget")->findChildren<QProgressBar*>();
    window.findChild<QPushButton*>("stopButton")->click(); // ends the discovery
    QTest::qWait(200);                                     // until the window is painted
    if (bars.size() != driveCount) {
        qFatal("many_drives: not all drives were found");
    }
    QElapsedTimer whole;
    whole.start();
    const std::clock_t processor = std::clock();
    QElapsedTimer sinceTurn;
    start_erasing(window, sinceTurn);
    std::array<double, 3> longestMs{double(sinceTurn.elapsed()), std::nan(""), 0};
    double share = std::nan(""); // as long as there was no turn with all of them
    QTimer beat;
    beat.callOnTimeout([&] {
        const auto erasing = std::count_if(bars.cbegin(), bars.cend(),
                                           [](const auto* bar) { return bar->format() == "%p%"; });
        double& longest = longestMs[erasing == driveCount ? 1 : 2];
        longest = std::fmax(longest, double(sinceTurn.nsecsElapsed()) / 1e6);
        sinceTurn.start();
        if (erasing == driveCount) {
            const double used = double(std::clock() - processor) / CLOCKS_PER_SEC;
            share = used / double(whole.nsecsElapsed()) * 1e11;
        }
        if (const auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            qFatal("many_drives: %s", qPrintable(box->text()));
        }
        if (erasing == 0) {
            QCoreApplication::quit();
        }
    });
    beat.start(kBeatMs);
    QCoreApplication::exec();
    std::printf("%f %f %f %f %f\n", double(whole.nsecsElapsed()) / 1e9, longestMs[0], longestMs[1],
                longestMs[2], share);
}

} // namespace

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    const QStringList images = QApplication::arguments().mid(1);
    dbg_init(DBG_TYPE_STRING, 1);
    const QTemporaryDir library;
    theProgramConfig().setLib(library.path().toStdString());
    PrivateBus bus;
    ServiceProcess service;
    const QString programs = QApplication::applicationDirPath();
    // Formatting is not measured.
    const bool isReady = QFile::link(programs + "/lib/driver", library.filePath("driver")) &&
                         QFile::link("/bin/true", library.filePath("format")) &&
                         bus.startAsSystemBus();
    service.start(bus, programs + "/diskservice",
                  QString("--image " + images.join(" --image ")).split(' '));
    const auto connection = QDBusConnection::connectToBus(bus.address(), "bench");
    if (!isReady || !ServiceProcess::waitForName(connection, "org.freedesktop.UDisks")) {
        qFatal("many_drives: there is no disk service");
    }
    const MainWindow window(nullptr, false);
    measure(window, images.size());
}
