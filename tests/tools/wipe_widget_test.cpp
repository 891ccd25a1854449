#include "tests/support/file_drive.h"
#include "tests/support/message_boxes.h"
#include "tools/wipe_widget.h"

#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How the system's flush ends in this program.
struct {
    std::atomic<int> calls = 0; ///< For the drive of this size; an earlier one's may come late.
    off_t driveBytes = 0;
    unsigned takesMs = 0;
    int error = 0;
} theFlush;

struct Range {
    unsigned long long sectors; ///< Of the drive.
    unsigned long long start;
    unsigned long long count;
    double sectorsPerTime = 256;
    unsigned long long sectorSize = 512;
};

struct Workplace : FileDrive {
    explicit Workplace(unsigned long long sectors, unsigned long long sectorSize = 512)
        : FileDrive(sectors, sectorSize)
    {
        widget->setDrive(drive);
    }

    QDoubleSpinBox* number(const char* name) { return widget->findChild<QDoubleSpinBox*>(name); }

    void wipe(const QString& pattern)
    {
        widget->findChild<QLineEdit*>("pattern")->setText(pattern);
        widget->findChild<QPushButton*>("wipe")->click();
    }

    std::unique_ptr<WipeWidget> widget = std::make_unique<WipeWidget>(nullptr);
    MessageBoxes boxes;
};

} // namespace

// In the place of the system's (fsync(2)).
extern "C" int fsync(int descriptor)
{
    QThread::msleep(theFlush.takesMs);
    struct stat status = {};
    theFlush.calls += fstat(descriptor, &status) == 0 && status.st_size == theFlush.driveBytes;
    errno = theFlush.error;
    return theFlush.error == 0 ? 0 : -1;
}

class WipeWidgetTest : public QObject {
    Q_OBJECT

private slots:
    void wipesTheRangeAndNothingElse_data()
    {
        QTest::addColumn<Range>("range");
        QTest::newRow("less than one time") << Range{1000, 0, 1000, 65536};
        QTest::newRow("the last sector") << Range{1000, 999, 1};
        QTest::newRow("the middle, an odd last block") << Range{2000, 3, 1000};
        QTest::newRow("4096-byte sectors") << Range{300, 1, 298, 100, 4096};
        QTest::newRow("beyond 32 bits") << Range{(1ULL << 32) + 600, (1ULL << 32) + 4, 500};
    }

    void wipesTheRangeAndNothingElse()
    {
        QFETCH(Range, range);
        Workplace place(range.sectors, range.sectorSize);
        const auto before = std::min(range.start, 3ULL); // sectors looked at
        const auto looked = before + range.sectors - range.start;
        QByteArray expected(qsizetype(looked * range.sectorSize), '#');
        place.at(range.start - before).write(expected);
        for (unsigned long long i = 0; i < range.count * range.sectorSize; ++i) {
            const auto at = qsizetype(before * range.sectorSize + i);
            expected[at] = "\0a\xff"[i % range.sectorSize % 3];
        }
        place.number("lba")->setValue(double(range.start));
        place.number("sectors")->setValue(double(range.count));
        place.number("sectorsPerTime")->setValue(range.sectorsPerTime);
        place.wipe(R"(\x00a\xff)");
        QCOMPARE(place.boxes.shown, QStringList({"?", "Wipe complete"}));
        QVERIFY(place.at(range.start - before).readAll() == expected);
    }

    // Of a cached file.
    void wipes128MiB()
    {
        Workplace place(1 << 15, 4096);
        QBENCHMARK
        {
            place.wipe("a");
        }
        QCOMPARE(place.boxes.shown.constLast(), "Wipe complete");
    }

    void keepsTheRangeOnTheDrive()
    {
        Workplace place(1000);
        place.number("lba")->setValue(5000);
        QCOMPARE(place.number("lba")->value(), 999.0);
        QCOMPARE(place.number("sectors")->value(), 1.0);
        place.widget->setDrive(place.drive);
        QCOMPARE(place.number("lba")->value(), 0.0);
        QCOMPARE(place.number("sectors")->value(), 1000.0);
    }

    void beginsWithTheUsualPatternEachTime()
    {
        const Workplace place(1000);
        auto* pattern = place.widget->findChild<QLineEdit*>("pattern");
        pattern->setText("of another drive");
        place.widget->show();
        QCOMPARE(pattern->text(), "VANTRELLE");
    }

    void writesNothing()
    {
        Workplace place(1000);
        place.wipe("\\x0");
        place.boxes.answers = {QMessageBox::No};
        place.wipe("a");
        QCOMPARE(place.at(0).readAll().count('\0'), place.file.size());
        place.drive.setDevice(place.directory.path().toStdString());
        place.widget->setDrive(place.drive);
        place.wipe("a");
        QCOMPARE(place.boxes.shown, QStringList({"Error: invalid pattern", "?", "?",
                                                 "Error: driver initialization failed"}));
    }

    // A file that may not become longer is a full drive. A block passed over counts as done.
    void asksWhenWritingFails()
    {
        Workplace place(1000);
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit{rlim_t(300 * 512), before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        place.wipe("a");
        place.boxes.answers = {QMessageBox::Yes, QMessageBox::No};
        place.wipe("b");
        setrlimit(RLIMIT_FSIZE, &before);
        const QString failure =
            "Error: write failed at LBA %1 sectors)\n\nAre you sure you want to continue?";
        QCOMPARE(place.boxes.shown, QStringList({"?", failure.arg("256 (256"),
                                                 failure.arg("512 (256"), failure.arg("768 (232"),
                                                 "Wipe complete", "?", failure.arg("256 (256")}));
        const QByteArray written(qsizetype(limit.rlim_cur), 'b');
        QCOMPARE(place.at(0).readAll(), written.leftJustified(512'000, '\0'));
    }

    void saysCompleteWhenAllIsOnTheMedium()
    {
        Workplace place((40 << 20) / 512);
        theFlush.driveBytes = 40 << 20;
        theFlush.takesMs = 300;
        int turns = 0;
        QTimer timer;
        timer.callOnTimeout([&] { turns += place.boxes.shown.size() == 1 ? 1 : 0; });
        timer.start(1);
        theFlush.calls = 0;
        int flushesBefore = 0;
        place.boxes.seen = [&] { flushesBefore = theFlush.calls; };
        place.wipe("a");
        theFlush.takesMs = 0;
        QCOMPARE(place.boxes.shown, QStringList({"?", "Wipe complete"}));
        QCOMPARE(flushesBefore, 2); // after 32 MiB and at the end
        QVERIFY2(turns > 20, "the screen stood still");
    }

    void asksWhenFlushingFails()
    {
        Workplace place(1000);
        theFlush.error = EIO;
        place.wipe("a");
        place.boxes.answers = {QMessageBox::Yes, QMessageBox::No};
        place.wipe("a");
        theFlush.error = 0;
        const QString failure = "Error: write failed at LBA 0 (1000 sectors)\n\nAre you sure you "
                                "want to continue?";
        QCOMPARE(place.boxes.shown, QStringList({"?", failure, "Wipe complete", "?", failure}));
    }

    void isInterruptedWhileFlushing()
    {
        Workplace place(1000);
        theFlush.driveBytes = 1000 * 512;
        theFlush.takesMs = 1000;
        theFlush.calls = 0;
        QElapsedTimer sinceClick;
        QTimer::singleShot(300, [&] {
            sinceClick.start();
            QApplication::activeModalWidget()->findChild<QPushButton*>()->click();
        });
        place.wipe("a");
        QVERIFY(sinceClick.elapsed() < 500); // the flush goes on for longer
        QCOMPARE(place.boxes.shown, QStringList{"?"});
        QTRY_COMPARE(theFlush.calls, 1);
        theFlush.takesMs = 0;
    }

    void wipesNothingOfAnEmptyDrive()
    {
        Workplace place(0);
        place.wipe("a");
        QCOMPARE(place.boxes.shown, QStringList{"?"});
    }

    void stopsAfterTheBlockInHand()
    {
        constexpr qint64 blockBytes = 65536LL * 4096;
        for (const bool isInterrupted : {true, false}) {
            Workplace place(3ULL * 65536, 4096);
            place.number("sectorsPerTime")->setValue(65536);
            place.file.resize(0); // so that its size tells how far the wipe has come
            qint64 atTurn = 0;
            QTimer turns;
            turns.callOnTimeout([&] {
                if (atTurn > 0 || place.file.size() == 0) {
                    return;
                }
                atTurn = place.file.size();
                if (isInterrupted) {
                    QApplication::activeModalWidget()->findChild<QPushButton*>()->click();
                } else {
                    place.widget.reset();
                }
            });
            turns.start(0);
            place.wipe("a");
            QVERIFY2(atTurn < blockBytes, "no turn of the event loop during a block");
            QCOMPARE(place.file.size(), blockBytes);
            QCOMPARE(place.boxes.shown, QStringList{"?"});
        }
    }
};

QTEST_MAIN(WipeWidgetTest)
#include "wipe_widget_test.moc"
