#include "helpers/driver_pass.h"
#include "helpers/failure.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>

namespace {

QByteArray pattern_content(int size, const QByteArray& pattern, int sectorSize = 512)
{
    QByteArray content(size, '\0');
    for (int i = 0; i < size; ++i)
        content[i] = pattern[i % sectorSize % pattern.size()];
    return content;
}

// A drive whose sectors are one byte: '.' old, 'w' written, 'x' bad, 'p' pulled out, 'g' gone
// (no size left), 's' half of the size left; 'f' behind the last one: the flush fails.
struct FaultyTarget : PassTarget {
    QByteArray sectors;
    std::uint64_t size = 10;

    ssize_t transfer(std::uint64_t offset, std::size_t length) override
    {
        for (std::size_t moved = 0; moved < length; ++moved) {
            char& sector = sectors[static_cast<int>(offset + moved)];
            if (sector == 'g' || sector == 's')
                size = sector == 's' ? 5 : 0;
            if (sector != '.' && sector != 'w')
                return moved > 0 ? static_cast<ssize_t>(moved) : sector == 'p' ? -ENODEV : -EIO;
            sector = 'w';
        }
        return static_cast<ssize_t>(length);
    }
    int flush() override { return sectors.endsWith('f') ? EIO : 0; }
    std::uint64_t currentSizeBytes() const override { return size; }
};

} // namespace

class DriverTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir dir_;
    QString image_ = dir_.filePath("image");
    QByteArrayList lines_; // of the last run

    [[nodiscard]] QByteArray content() const
    {
        QFile file(image_);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QByteArray makeImage(int size) const
    {
        QFile file(image_);
        const QByteArray old = pattern_content(size, "\xfe\xdc\xba\x98\x76", size);
        return file.open(QIODevice::WriteOnly) && file.write(old) == size ? old : "not made";
    }
    // The arguments stand between bars. Gives the exit code, or -1 after a crash.
    int runDriver(const QString& arguments, const std::function<void()>& inChild = {})
    {
        QProcess process;
        process.setChildProcessModifier(inChild);
        process.start(DRIVER_PROGRAM, arguments.split('|'));
        process.waitForFinished(-1);
        lines_ = process.readAllStandardOutput().trimmed().split('\n');
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

private slots:
    void everySector_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("sectors");
        QTest::addColumn<QString>("pattern");
        QTest::newRow("a short last step and a tail") << 1000003 << 256 << "AB c";
        QTest::newRow("less than a sector") << 5 << 256 << "AB";
        QTest::newRow("the largest step") << (9 << 20) + 1 << 65536 << "xyz";
        QTest::newRow("more than a sector") << 5000 << 1 << QString(600, 'a') + 'b';
    }
    void everySector()
    {
        QFETCH(int, size);
        QFETCH(int, sectors);
        QFETCH(QString, pattern);
        const QByteArray old = makeImage(size);
        for (const QString mode : {"read", "write"}) {
            const QString given = "sectorsPerTime=%1|pattern=%2|mode=%3|device=%4";
            QCOMPARE(runDriver(given.arg(QString::number(sectors), pattern, mode, image_)), 0);
            QVERIFY(content() ==
                    (mode == "read" ? old : pattern_content(size, pattern.toLatin1())));
            QCOMPARE(lines_.first(), "progress: 0");
            QCOMPARE(lines_.last(), "progress: 100");
            for (int i = 1; i < lines_.size(); ++i)
                QVERIFY(lines_[i].mid(10).toInt() > lines_[i - 1].mid(10).toInt());
        }
    }

    void refused_data()
    {
        QTest::addColumn<QString>("arguments"); // %1 is a folder
        QTest::addColumn<QString>("message");
        const auto row = [](const QString& arguments, const QString& message) {
            QTest::newRow(qPrintable(message)) << arguments << message;
        };
        const QString rest = "|mode=write|pattern=A|sectorsPerTime=";
        row("device=%1/image|pattern=A|sectorsPerTime=1", "2 missing argument 'mode='");
        row("device=%1/image|force=1" + rest + "1", "2 unknown argument 'force=1'");
        row("device=%1/image|mode=read" + rest + "1", "2 repeated argument 'mode=write'");
        row("device=" + rest + "1", "2 device: '' is not a path");
        row("mode=\nW|device=A|pattern=A|sectorsPerTime=1",
            "2 mode: '?W' is neither read nor write");
        row("device=%1/no|mode=write|pattern=\\q|sectorsPerTime=1", "2 invalid pattern");
        const QString range = "2 sectorsPerTime: '%1' is not a number from 1 to 65536";
        for (const QString number : {"", "0", "-1", "+1", "1x", " 1", "65537", "4294967297"})
            row("device=%1/image" + rest + number, range.arg(number));
        row("device=%1/no" + rest + "1", "1 %1/no: open: No such file or directory");
        const QString kind = ": open: neither a block device nor a regular file";
        for (const QString path : {"%1", "%1/fifo", "/dev/null"})
            row("device=" + path + rest + "1", "1 " + path + kind);
        row("device=%1/locked" + rest + "1", "1 %1/locked: open: the device is in use");
    }
    void refused()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, message);
        const QByteArray old = makeImage(5000);
        ::mkfifo(qPrintable(dir_.filePath("fifo")), 0600);
        QFile locked(dir_.filePath("locked"));
        QVERIFY(locked.open(QIODevice::WriteOnly) && ::flock(locked.handle(), LOCK_EX) == 0);
        QCOMPARE(runDriver(arguments.replace("%1", dir_.path())), message.left(1).toInt());
        QCOMPARE(lines_, {"error: " + message.mid(2).replace("%1", dir_.path()).toLatin1()});
        QVERIFY(content() == old);
        QVERIFY(!QFile::exists(dir_.filePath("no")));
    }

    void faults_data()
    {
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("message");
        const auto row = [](const char* before, const QString& after, const QString& message) {
            QTest::newRow(before) << after << message;
        };
        const QString bad = " sectors could not be written, first at sector %1: Input/output error";
        row("x........x", "xwwwwwwwwx", "2" + bad.arg(0));
        row("....x.....", "wwwwxwwwww", "1" + bad.arg(4));
        row("..........f", "wwwwwwwwwwf", "NAME: flush: Input/output error");
        row("....p.....", "wwwwp.....", "NAME: write: No such device");
        row("...g......", "wwwg......", "NAME: write: the device has gone");
        row(".......s..", "wwwwwwws..", "NAME: write: the size changed from 10 to 5 bytes");
    }
    void faults()
    {
        FaultyTarget target;
        target.sectors = QTest::currentDataTag();
        unsigned percent = 0;
        QString message = "no failure";
        const PassPlan plan{"NAME", TargetDevice::Access::Write, 10, 1, 3};
        try {
            Pass(plan, target, [&](unsigned shown) { percent = shown; }).run();
        } catch (const Failure& failure) {
            message = failure.what();
        }
        QTEST(message, "message");
        QTEST(QString(target.sectors), "after");
        QVERIFY(percent > 0 && percent < 100);
    }

    // The system really refuses to write behind this size (setrlimit(2)).
    void failingEnd()
    {
        const QByteArray old = makeImage(100 * 512 + 9);
        const auto forbidBehind = [] {
            const rlimit size{60 * 512, 60 * 512};
            ::setrlimit(RLIMIT_FSIZE, &size);
            ::signal(SIGXFSZ, SIG_IGN);
        };
        QVERIFY(QFile::link(image_, dir_.filePath("link")));
        const QString given = "device=%1/link|mode=write|pattern=\\x00\\xff|sectorsPerTime=16";
        QCOMPARE(runDriver(given.arg(dir_.path()), forbidBehind), 1);
        QCOMPARE(lines_.last(),
                 "error: 41 sectors could not be written, first at sector 60: File too large");
        QVERIFY(!lines_.contains("progress: 100"));
        const QByteArray start = pattern_content(60 * 512, QByteArray("\0\xff", 2));
        QVERIFY(content() == start + old.mid(60 * 512));
    }

    void brokenOutputEndsTheRun()
    {
        makeImage(5000);
        const auto useFullDevice = [] { ::dup2(::open("/dev/full", O_WRONLY), STDOUT_FILENO); };
        const QString given = "device=" + image_ + "|mode=write|pattern=A|sectorsPerTime=1";
        QCOMPARE(runDriver(given, useFullDevice), 1);
        QVERIFY(!content().contains('A'));
    }

    void diesWithItsParent()
    {
        QFile image(image_);
        QVERIFY(image.open(QIODevice::ReadWrite) && image.resize(1 << 30)); // takes a while
        QCOMPARE(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); // the orphan becomes a child of ours
        QProcess parent;
        parent.start("sh", {"-c", R"("$0" "$@" >/dev/null & echo $!; wait)", DRIVER_PROGRAM,
                            "device=" + image_, "mode=write", "pattern=A", "sectorsPerTime=1"});
        QTRY_VERIFY(parent.canReadLine());
        const pid_t driver = parent.readLine().toInt();
        QTRY_COMPARE(image.seek(0) ? image.read(1) : "", "A");
        parent.kill();
        QVERIFY(parent.waitForFinished());
        int status = 0;
        QCOMPARE(::waitpid(driver, &status, 0), driver);
        QVERIFY(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    }

    void manPageShowsEveryOption()
    {
        QFile page(DRIVER_MAN_PAGE);
        QVERIFY(page.open(QIODevice::ReadOnly));
        const QString text = page.readAll().replace("\\-", "-");
        QCOMPARE(runDriver("--help"), 0);
        const QStringList options = QString(lines_.join('\n')).split("\n  ").mid(1);
        QCOMPARE(options.size(), 5);
        for (const QString& option : options)
            QVERIFY(text.contains(QRegularExpression("^[-a-zA-Z]+=?").match(option).captured()));
    }
};

QTEST_GUILESS_MAIN(DriverTest)
#include "driver_test.moc"
