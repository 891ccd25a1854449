#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <fcntl.h>

namespace {

QByteArray pattern_content(int size, const QByteArray& pattern, int sectorSize = 512)
{
    const QByteArray sector = pattern.repeated(sectorSize / pattern.size() + 1).left(sectorSize);
    return sector.repeated(size / sectorSize + 1).left(size);
}

// As in a sandbox whose filter does not know io_uring (seccomp(2)).
void refuse_rings()
{
    std::array filter{
        sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        sock_filter BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_io_uring_setup, 0, 1),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
        sock_filter BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{filter.size(), filter.data()};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program);
}

} // namespace

class DriverTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString image_ = dir_.filePath("image");
    QByteArrayList lines_; // of the last run

    [[nodiscard]] QByteArray content() const
    {
        QFile file(image_);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    [[nodiscard]] QByteArray makeImage(int size) const
    {
        QFile file(image_);
        const QByteArray old = pattern_content(size, "\xfe\xdc\xba\x98\x76", 2000);
        return file.open(QIODevice::WriteOnly) && file.write(old) == size ? old : "not made";
    }
    // The arguments stand between bars, %1 is the folder, before them may stand environment
    // variables; the shell may prepare something before. Gives the exit code, or -1 after a crash.
    int runDriver(const QString& arguments, const QString& preparation = {})
    {
        QProcess process;
        if (QTest::currentDataTag() == QByteArray("without io_uring")) {
            process.setChildProcessModifier(refuse_rings);
        }
        QStringList words = QString(arguments).replace("%1", dir_.path()).split('|');
        const auto driver = std::ranges::find_if(
            words, [](const QString& word) { return !word.startsWith("VANTRELLE_"); });
        words.insert(driver - words.begin(), BINARIES "/lib/driver");
        process.start("sh", QStringList{"-c", preparation + R"( exec env "$@")", "sh"} + words);
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
        QTest::newRow("without io_uring") << 5000 << 256 << "AB c";
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
        const QString given = "|sectorsPerTime=" + QString::number(sectors) + "|pattern=" + pattern;
        QCOMPARE(runDriver("device=%1/image|mode=read" + given), 0);
        QVERIFY(content() == old);
        QCOMPARE(runDriver("device=%1/image|mode=write" + given), 0);
        QVERIFY(content() == pattern_content(size, pattern.toLatin1()));
        QCOMPARE(lines_.last(), "progress: 100");
    }

    void refused_data()
    {
        QTest::addColumn<QString>("arguments");
        const QString rest = "|mode=write|pattern=A|sectorsPerTime=1";
        QTest::newRow("2 missing argument 'mode='") << "device=%1/image|pattern=A|sectorsPerTime=1";
        QTest::newRow("2 unknown argument 'force=1'") << "device=%1/image|force=1" + rest;
        QTest::newRow("2 repeated argument 'mode=write'") << "device=%1/image|mode=read" + rest;
        QTest::newRow("2 mode: '?W' is neither read nor write")
            << "device=%1/image|mode=\nW|pattern=A|sectorsPerTime=1";
        QTest::newRow("2 invalid pattern")
            << "device=%1/image|mode=write|pattern=\\q|sectorsPerTime=1";
        for (const QString number : {"", "0", "-1", "+1", "1x", " 1", "65537", "4294967297"}) {
            const QString message = "2 sectorsPerTime: '%1' is not a number from 1 to 65536";
            QTest::newRow(qPrintable(message.arg(number)))
                << "device=%1/image|mode=write|pattern=A|sectorsPerTime=" + number;
        }
        QTest::newRow("1 %1/no: open: No such file or directory") << "device=%1/no" + rest;
        QTest::newRow("1 /dev/null: open: neither a block device nor a regular file")
            << "device=/dev/null" + rest;
        QTest::newRow("2 VANTRELLE_SIZE: '5 k' is not a number")
            << "VANTRELLE_SIZE=5 k|device=%1/image" + rest;
        QTest::newRow("1 %1/image: another drive is there now: 5000 bytes")
            << "VANTRELLE_SIZE=5001|device=%1/image" + rest;
        QTest::newRow("1 %1/locked: open: the device is in use") << "device=%1/locked" + rest;
    }
    // The row's name is the exit code and the message.
    void refused()
    {
        QFETCH(QString, arguments);
        const QString expected = QString(QTest::currentDataTag()).replace("%1", dir_.path());
        const QByteArray old = makeImage(5000);
        QFile locked(dir_.filePath("locked"));
        QVERIFY(locked.open(QIODevice::WriteOnly) && ::flock(locked.handle(), LOCK_EX) == 0);
        QCOMPARE(runDriver(arguments), expected.left(1).toInt());
        QCOMPARE(lines_, {"error: " + expected.mid(2).toLatin1()});
        QVERIFY(content() == old && !QFile::exists(dir_.filePath("no")));
    }

    // Where a user may not have a /dev of its own, this is skipped.
    void fileInThePlaceOfADrive()
    {
        const QString given = "device=/dev/drive|mode=write|pattern=A|sectorsPerTime=1";
        const QString own = "mount -t tmpfs none /dev && truncate -s 5000 /dev/drive || exit 77; ";
        QProcess process;
        const QStringList command{"-rm", "sh", "-c", own + R"("$0" "$@"; cat /dev/drive)"};
        process.start("unshare", command + QStringList{BINARIES "/lib/driver"} + given.split('|'));
        process.waitForFinished(-1);
        if (process.exitCode() == 77 || !process.readAllStandardError().isEmpty()) {
            QSKIP("no mount namespace (unshare -rm)");
        }
        const QByteArray refusal =
            "error: /dev/drive: open: a regular file in the place of a device is no drive\n";
        QVERIFY(process.readAllStandardOutput() == refusal + QByteArray(5000, '\0'));
    }

    void loopDevice_data()
    {
        QTest::addColumn<QString>("script"); // $d is the device, $run the program and its arguments
        QTest::newRow("open: the device is in use: mounted at %1/m")
            << "mkfs.ext2 -q $d && mkdir %1/m && mount $d %1/m && { $run; umount %1/m; }";
        QTest::newRow("another drive is there now: 4194304 bytes")
            << "n=$(cat /sys/block/${d#/dev/}/diskseq) && VANTRELLE_DISKSEQ=1$n $run";
        QTest::newRow("progress: 100")
            << "n=$(cat /sys/block/${d#/dev/}/diskseq) && VANTRELLE_DISKSEQ=$n $run";
    }
    // The row's name is a part of what the program says.
    void loopDevice()
    {
        QFETCH(QString, script);
        const QString setup = "PATH=$PATH:/sbin; d=$(losetup -f --show %1/image) || exit 77; "
                              "trap 'losetup -d $d' 0; "
                              "run=\"$0 device=$d mode=write pattern=A sectorsPerTime=1\"; ";
        QVERIFY(makeImage(4 << 20).size() == 4 << 20);
        QProcess process;
        process.start("sh", {"-c", QString(setup + script).replace("%1", dir_.path()),
                             BINARIES "/lib/driver"});
        process.waitForFinished(20000); // any other user is waited for for a minute
        if (process.exitCode() == 77) {
            QSKIP("no loop device (needs root)");
        }
        const QByteArray output = process.readAllStandardOutput();
        const QString expected = QString(QTest::currentDataTag()).replace("%1", dir_.path());
        QVERIFY2(output.contains(expected.toLatin1()), output);
    }

    // The write across the largest place that the file may be written at is a short one.
    void shortWriteIsNoWholeOne()
    {
        const QByteArray old = makeImage(5000);
        const QString given = "device=%1/image|mode=write|pattern=A|sectorsPerTime=256";
        QCOMPARE(runDriver(given, "trap '' XFSZ; ulimit -f 4;"), 1); // times 512 bytes
        QVERIFY(
            lines_.last().startsWith("error: 6 sectors could not be written, first at sector 4"));
        QVERIFY(content() == QByteArray(2048, 'A') + old.mid(2048));
        QVERIFY(!lines_.contains("progress: 100"));
    }

    // On a drive that takes longer to write than it may live on. Nothing breaks its output.
    void endsWithItsParent()
    {
        QVERIFY(makeImage(1).size() == 1 && QFile::resize(image_, 8LL << 30));
        QProcess parent;
        parent.start("sh", {"-c", R"("$0" "$@" >/dev/null & echo $!; wait)", BINARIES "/lib/driver",
                            "device=" + image_, "mode=write", "pattern=A", "sectorsPerTime=256"});
        QVERIFY(parent.waitForReadyRead());
        const QString stat = "/proc/" + parent.readLine().trimmed() + "/stat";
        const auto isRunning = [&] {
            QFile file(stat);
            return file.open(QFile::ReadOnly) && !file.readAll().contains(") Z ");
        };
        QTest::qWait(300);
        QVERIFY(isRunning());
        parent.kill();
        QVERIFY(parent.waitForFinished());
        QTRY_VERIFY_WITH_TIMEOUT(!isRunning(), 1000);
        QVERIFY(QFile::remove(image_));
    }

    void keepsOthersOut()
    {
        QVERIFY(makeImage(1).size() == 1 && QFile::resize(image_, 8LL << 30));
        QProcess driver;
        driver.start("sh", {"-c", R"(PATH=$PATH:/sbin; d=$(losetup -f --show $1) || exit 77
            echo $d; "$0" device=$d mode=read pattern= sectorsPerTime=256)",
                            BINARIES "/lib/driver", image_});
        if (!driver.waitForReadyRead()) {
            QSKIP("no loop device (needs root)");
        }
        const QByteArray device = driver.readLine().trimmed();
        QVERIFY(driver.waitForReadyRead()); // its first progress
        const int second = ::open(device.constData(), O_RDONLY | O_EXCL | O_CLOEXEC);
        const int error = errno;
        driver.terminate();
        driver.waitForFinished(1000);
        QCOMPARE(QProcess::execute("sh", {"-c", "PATH=$PATH:/sbin; losetup -d " + device}), 0);
        QVERIFY(QFile::remove(image_));
        QVERIFY(second < 0 && error == EBUSY);
    }

    void brokenOutputEndsTheRun()
    {
        const QByteArray old = makeImage(5000);
        const QString given = "device=%1/image|mode=write|pattern=A|sectorsPerTime=1";
        QCOMPARE(runDriver(given, "exec >/dev/full;"), 1);
        QVERIFY(content() == old);
    }
};

QTEST_GUILESS_MAIN(DriverTest)
#include "driver_test.moc"
