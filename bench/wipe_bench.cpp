// The sector wipe beside `dd bs=128k` on one cached file, and the event loop's longest wait.
//     wipe_bench [MiB] [runs] [sectors per time]
#include "tests/tools/file_drive.h"
#include "tests/tools/message_boxes.h"
#include "tools/wipe_widget.h"

#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QProcess>

#include <cstdio>

namespace {

constexpr unsigned long long kSectorSize = 4096;

// Raises the longest time between two turns of the event loop, in milliseconds.
void run_wipe(const Drive& drive, double sectorsPerTime, qint64& longestMs)
{
    WipeWidget widget(nullptr);
    widget.setDrive(drive);
    widget.show();
    widget.findChild<QDoubleSpinBox*>("sectorsPerTime")->setValue(sectorsPerTime);
    const MessageBoxes boxes;
    QElapsedTimer sinceTurn;
    QTimer turns;
    turns.callOnTimeout([&] { longestMs = std::max(longestMs, sinceTurn.restart()); });
    turns.start(1);
    sinceTurn.start();
    widget.findChild<QPushButton*>("wipe")->click();
    if (!boxes.shown.endsWith("Wipe complete")) {
        qFatal("the wipe failed");
    }
}

void run_dd(const QString& path, const QString& mebibytes)
{
    if (QProcess::execute("dd", {"if=/dev/zero", "of=" + path, "bs=128k", "iflag=count_bytes",
                                 "count=" + mebibytes + 'M', "conv=notrunc", "status=none"}) != 0) {
        qFatal("dd failed");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    const QString mebibytes = QApplication::arguments().value(1, "2048");
    const int runs = QApplication::arguments().value(2, "5").toInt();
    const double sectorsPerTime = QApplication::arguments().value(3, "256").toDouble();
    const FileDrive file((mebibytes.toULongLong() << 20) / kSectorSize, kSectorSize);
    run_dd(file.file.fileName(), mebibytes); // which brings the file into the cache
    qint64 longestMs = 0;
    qint64 wipeMs = 0;
    qint64 ddMs = 0;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        run_wipe(file.drive, sectorsPerTime, longestMs);
        wipeMs += timer.restart();
        run_dd(file.file.fileName(), mebibytes);
        ddMs += timer.elapsed();
    }
    const double writtenMiB = mebibytes.toDouble() * runs * 1000;
    std::printf("wipe %.0f MiB/s, dd %.0f MiB/s, ratio %.2f, longest gap %lld ms\n",
                writtenMiB / double(wipeMs), writtenMiB / double(ddMs),
                double(ddMs) / double(wipeMs), longestMs);
}
