#include "tests/diskservice/private_bus.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>

namespace {

constexpr qsizetype kSector = 512;
constexpr qsizetype kPartitionStart = 1 << 20;
constexpr qsizetype kSize = (48 << 20) - 3 * kSector;
// Takes the driver longer to write than it may live on.
constexpr qint64 kBigSize = qint64{8} << 30;
constexpr int kWholeRunMs = 60000;
// The discovery's ticks and the countdown's until 3 seconds are left, less what timers may hurry.
constexpr int kUntilThreeMs = 17500;
constexpr int kKillMs = 2000;

QByteArray content(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What is wrong with the image of an erased and formatted drive; empty when nothing is.
QString fault(const QByteArray& image)
{
    const QByteArray pattern = QByteArray("VANTRELLE").repeated(57).left(kSector);
    if (image.size() != kSize || image.contains("old content ")) {
        return "old content is left";
    }
    if (image[446] != '\x80' || image[450] != '\x0C' || image.mid(510, 2) != "\x55\xAA" ||
        image.mid(kPartitionStart + 82, 5) != "FAT32") {
        return "there is no active FAT32 partition";
    }
    const qsizetype erased = image.count(pattern) * kSector;
    return erased > kSize / 10 * 9 ? QString() : QString("only %1 bytes are erased").arg(erased);
}

// How many processes have this text among their arguments.
qsizetype processes_with(const QByteArray& argument)
{
    const QStringList pids = QDir("/proc").entryList({"[0-9]*"}, QDir::Dirs);
    return std::count_if(pids.cbegin(), pids.cend(), [&](const QString& pid) {
        return content("/proc/" + pid + "/cmdline").split('\0').contains(argument);
    });
}

// The program on a bus and in a directory of its own.
struct Run {
    QTemporaryDir directory;
    PrivateBus bus;
    ServiceProcess service;
    ServiceProcess program;

    [[nodiscard]] QString file(const QString& name) const { return directory.filePath(name); }
    [[nodiscard]] QByteArray log() const { return content(file("log")); }

    [[nodiscard]] bool start(const QStringList& images, const QByteArray& bytes, qint64 size)
    {
        bool isReady = bus.start() && QDir(directory.path()).mkdir("lib");
        QStringList arguments;
        for (const QString& name : images) {
            QFile image(file(name));
            isReady = isReady && image.open(QIODevice::WriteOnly) &&
                      image.write(bytes) == bytes.size() && image.resize(size);
            arguments << "--image" << image.fileName();
        }
        // A library directory of its own, because the pictures are made there.
        for (const QString name : {"driver", "format", "boot"}) {
            isReady = isReady && QFile::link(HELPERS "/" + name, file("lib/") + name);
        }
        service.start(bus, DISKSERVICE, arguments);
        // The program skips two characters after "lib=".
        program.start(bus, PROGRAM, {"lib=.." + file("lib"), "dbg=" + file("log")});
        return isReady;
    }
};

} // namespace

/// Two programs run at the same time.
class ProgramTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        clock_.start();
        QVERIFY(whole_.start({"one", "two"}, oldContent_, kSize));
        QVERIFY(killed_.start({"big"}, {}, kBigSize));
    }

    void touchesNothingDuringTheCountdown()
    {
        QTRY_VERIFY_WITH_TIMEOUT(whole_.log().contains("begin erasing in 3 seconds"), kWholeRunMs);
        QVERIFY2(clock_.elapsed() >= kUntilThreeMs, "the ticks come too fast");
        QVERIFY(content(whole_.file("one")) == oldContent_);
    }

    void leavesNoDriverBehindWhenKilled()
    {
        const QByteArray device = "device=" + killed_.file("big").toLatin1();
        QTRY_COMPARE_WITH_TIMEOUT(processes_with(device), 1, kWholeRunMs);
        QCOMPARE(killed_.program.end(SIGKILL), -1);
        QTRY_COMPARE_WITH_TIMEOUT(processes_with(device), 0, kKillMs);
        QVERIFY(!killed_.log().contains("finished: "));
    }

    void erasesAndFormatsEveryDrive()
    {
        QTRY_COMPARE_WITH_TIMEOUT(whole_.log().count("finished: exitCode: 0, exitStatus: 0"), 4,
                                  kWholeRunMs);
        QCOMPARE(whole_.log().count("finished: "), 4);
        whole_.program.end(SIGTERM);
        QCOMPARE(fault(content(whole_.file("one"))), QString());
        QCOMPARE(fault(content(whole_.file("two"))), QString());
    }

private:
    Run whole_;
    Run killed_;
    QElapsedTimer clock_;
    QByteArray oldContent_ = QByteArray("old content ").repeated(kSize / 12 + 1).left(kSize);
};

QTEST_GUILESS_MAIN(ProgramTest)
#include "program_test.moc"
