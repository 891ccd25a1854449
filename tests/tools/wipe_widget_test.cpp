#include "tests/tools/file_drive.h"
#include "tests/tools/message_boxes.h"
#include "tools/wipe_widget.h"

#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QProgressDialog>
#include <QTest>

#include <csignal>
#include <sys/resource.h>

namespace {

const char* const kComplete = "Information Wipe Drive: Wipe complete";

// What to wipe of a drive, how, and the bytes that the pattern stands for.
struct Range {
    unsigned long long sectors;
    unsigned long long start;
    unsigned long long count;
    double sectorsPerTime = 256;
    unsigned long long sectorSize = 512;
    QString pattern = QStringLiteral("VANTRELLE");
    QByteArray bytes = "VANTRELLE";
};

struct Workplace : FileDrive {
    explicit Workplace(unsigned long long sectors, unsigned long long sectorSize = 512)
        : FileDrive(sectors, sectorSize)
    {
        widget.setDrive(drive);
    }

    QDoubleSpinBox* number(const char* name) { return widget.findChild<QDoubleSpinBox*>(name); }
    // By its name alone: each number field holds a text field too.
    QLineEdit* pattern() { return widget.findChild<QLineEdit*>("pattern"); }

    void wipe(const QString& text)
    {
        pattern()->setText(text);
        widget.findChild<QPushButton*>("wipe")->click();
    }

    WipeWidget widget{nullptr};
    MessageBoxes boxes;
};

QString failure(const char* place)
{
    return QStringLiteral("Critical Wipe Drive: Error: write failed at LBA %1 sectors)\n\n"
                          "Are you sure you want to continue?")
        .arg(place);
}

} // namespace

class WipeWidgetTest : public QObject {
    Q_OBJECT

private slots:
    void wipesTheRangeAndNothingElse_data()
    {
        QTest::addColumn<Range>("range");
        QTest::newRow("the whole drive") << Range{1000, 0, 1000};
        QTest::newRow("the first sector") << Range{1000, 0, 1};
        QTest::newRow("the last sector") << Range{1000, 999, 1};
        QTest::newRow("the middle, an odd last block") << Range{2000, 3, 1000};
        QTest::newRow("less than one time") << Range{1000, 10, 600, 65536};
        QTest::newRow("any bytes, 4096-byte sectors")
            << Range{300, 1, 298, 100, 4096, R"(\x00a\xff)", {"\0a\xff", 3}};
        QTest::newRow("beyond 32 bits") << Range{(1ULL << 32) + 600, (1ULL << 32) + 4, 500};
    }

    void wipesTheRangeAndNothingElse()
    {
        QFETCH(Range, range);
        Workplace place(range.sectors, range.sectorSize);
        const auto first = range.start > range.count ? range.start - 2 : 0;
        QByteArray expected(qsizetype((range.sectors - first) * range.sectorSize), '#');
        place.at(first).write(expected);
        const auto begin = (range.start - first) * range.sectorSize;
        for (unsigned long long i = 0; i < range.count * range.sectorSize; ++i) {
            const auto inSector = qsizetype(i % range.sectorSize);
            expected[qsizetype(begin + i)] = range.bytes[inSector % range.bytes.size()];
        }
        place.number("lba")->setValue(double(range.start));
        place.number("sectors")->setValue(double(range.count));
        place.number("sectorsPerTime")->setValue(range.sectorsPerTime);
        place.wipe(range.pattern);
        QCOMPARE(place.boxes.shown, QStringList({"?", kComplete}));
        QVERIFY(place.at(first).readAll() == expected);
    }

    void keepsTheRangeOnTheDrive()
    {
        Workplace place(1000);
        QCOMPARE(place.number("sectors")->value(), 1000.0);
        QCOMPARE(place.number("sectorsPerTime")->maximum(), 65536.0);
        place.number("lba")->setValue(990);
        QCOMPARE(place.number("sectors")->value(), 10.0);
        place.number("lba")->setValue(5000);
        QCOMPARE(place.number("lba")->value(), 999.0);
        QCOMPARE(place.number("sectors")->maximum(), 1.0);
        place.pattern()->setText("other");
        place.widget.show();
        QCOMPARE(place.pattern()->text(), "VANTRELLE");
    }

    void writesNothing()
    {
        Workplace place(1000);
        place.wipe("");
        place.wipe("\\x0");
        place.boxes.answers = {QMessageBox::No};
        place.wipe("a");
        QVERIFY(place.at(0).readAll() == QByteArray(place.file.size(), '\0'));
        place.drive.setDevice(place.directory.path().toStdString());
        place.widget.setDrive(place.drive);
        place.wipe("a");
        const QString error = "Critical Wipe Drive: Error: ";
        QCOMPARE(place.boxes.shown,
                 QStringList({error + "invalid pattern", error + "invalid pattern", "?", "?",
                              error + "driver initialization failed"}));
    }

    void asksWhenWritingFails_data()
    {
        QTest::addColumn<rlim_t>("room"); // sectors
        QTest::addColumn<int>("goesOn");  // so many times
        QTest::addColumn<QStringList>("boxes");
        QTest::newRow("at once") << rlim_t(0) << 0 << QStringList{failure("0 (256")};
        QTest::newRow("a short block, then every one")
            << rlim_t(300) << 2
            << QStringList{failure("256 (256"), failure("512 (256"), failure("768 (232")};
        QTest::newRow("a passed-over block counts as done")
            << rlim_t(999) << 1 << QStringList{failure("768 (232"), kComplete};
    }

    // A file that may not become longer is a full drive.
    void asksWhenWritingFails()
    {
        QFETCH(rlim_t, room);
        QFETCH(int, goesOn);
        QFETCH(QStringList, boxes);
        Workplace place(1000);
        place.boxes.answers.fill(QMessageBox::Yes, 1 + goesOn);
        place.boxes.answers << QMessageBox::No;
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit before = {};
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit{room * 512, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        place.wipe("a");
        setrlimit(RLIMIT_FSIZE, &before);
        QCOMPARE(place.boxes.shown, QStringList{"?"} + boxes);
        QCOMPARE(place.at(0).readAll().count('a'), qsizetype(room * 512));
    }

    // The file starts empty and so tells by its size how far the wipe has come.
    void stopsAfterTheBlockInHand()
    {
        constexpr qint64 blockBytes = 65536LL * 4096;
        Workplace place(3ULL * 65536, 4096);
        place.number("sectorsPerTime")->setValue(65536);
        QVERIFY(place.file.resize(0));
        qint64 atInterrupt = 0;
        QTimer turns;
        turns.callOnTimeout([&] {
            auto* dialog = place.widget.findChild<QProgressDialog*>();
            if (dialog != nullptr && atInterrupt == 0 && place.file.size() > 0) {
                atInterrupt = place.file.size();
                dialog->findChild<QPushButton*>()->click();
            }
        });
        turns.start(0);
        place.wipe("a");
        QVERIFY2(atInterrupt < blockBytes, "no turn of the event loop during a block");
        QCOMPARE(place.file.size(), blockBytes);
        QCOMPARE(place.boxes.shown, QStringList{"?"});
    }
};

QTEST_MAIN(WipeWidgetTest)
#include "wipe_widget_test.moc"
