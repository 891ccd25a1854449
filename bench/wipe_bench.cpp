// The sector wipe beside `dd bs=128k` on the same file, in turns, through the system's cache,
// and the longest time that the event loop waits for its turn meanwhile.
//
//     wipe_bench [MiB] [runs] [sectors per time]
#include "tests/tools/file_drive.h"
#include "tests/tools/message_boxes.h"
#include "tools/wipe_widget.h"

#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QProcess>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr unsigned long long kSectorSize = 4096;
constexpr unsigned long long kSectorsPerMiB = 256;

struct Run {
    double seconds = 0;
    double longestGapMs = 0;
};

Run run_wipe(const FileDrive& file, double sectorsPerTime)
{
    WipeWidget widget(nullptr);
    widget.setDrive(file.drive);
    widget.show();
    widget.findChild<QDoubleSpinBox*>("sectorsPerTime")->setValue(sectorsPerTime);
    MessageBoxes boxes;
    Run run;
    QElapsedTimer sinceTurn;
    QElapsedTimer sinceStart;
    QTimer turns;
    turns.callOnTimeout([&] {
        run.longestGapMs = std::max(run.longestGapMs, double(sinceTurn.nsecsElapsed()) / 1e6);
        sinceTurn.start();
    });
    turns.start(1);
    sinceTurn.start();
    sinceStart.start();
    widget.findChild<QPushButton*>("wipe")->click();
    run.seconds = double(sinceStart.nsecsElapsed()) / 1e9;
    if (!boxes.shown.endsWith("Information Wipe Drive: Wipe complete")) {
        qFatal("the wipe failed");
    }
    return run;
}

double run_dd(const FileDrive& file)
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    const int exitCode = QProcess::execute(
        "dd", {"if=/dev/zero", "of=" + file.file.fileName(), "bs=128k",
               "count=" + QString::number(file.file.size() >> 17), "conv=notrunc", "status=none"});
    if (exitCode != 0) {
        qFatal("dd failed");
    }
    return double(sinceStart.nsecsElapsed()) / 1e9;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    const QApplication application(argc, argv);
    const auto argument = [&](int position, qulonglong otherwise) {
        return argc > position ? QString(argv[position]).toULongLong() : otherwise;
    };
    const qulonglong mebibytes = argument(1, 2048);
    const FileDrive file(mebibytes * kSectorsPerMiB, kSectorSize);
    run_dd(file); // which brings the file into the cache
    std::vector<double> wipe;
    std::vector<double> dd;
    double longestGapMs = 0;
    for (qulonglong i = argument(2, 5); i > 0; --i) {
        const Run run = run_wipe(file, double(argument(3, 256)));
        wipe.push_back(double(mebibytes) / run.seconds);
        longestGapMs = std::max(longestGapMs, run.longestGapMs);
        dd.push_back(double(mebibytes) / run_dd(file));
    }
    std::printf("wipe %.0f MiB/s, dd %.0f MiB/s, ratio %.2f, longest gap %.1f ms\n", median(wipe),
                median(dd), median(wipe) / median(dd), longestGapMs);
    return 0;
}
