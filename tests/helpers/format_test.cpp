#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <unistd.h>

namespace {

constexpr qint64 kMiB = 1024 * 1024;
constexpr qint64 kSmallest = 68630 * 512; // 2048 + 32 + 2 * 512 + 65526 sectors

struct Run {
    int code = -1;
    QByteArray output;
    QByteArray error;
};

Run run(const QString& program, const QStringList& arguments, const QString& path = {})
{
    QProcess process;
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PATH", (path.isEmpty() ? environment.value("PATH") : path) + ":/sbin");
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

QByteArray content(const QString& path, qint64 offset = 0, qint64 size = -1)
{
    QFile file(path);
    if (!file.open(QFile::ReadOnly) || !file.seek(offset))
        return "unreadable " + path.toLatin1();
    return size < 0 ? file.readAll() : file.read(size);
}

bool write(const QString& path, const QByteArray& bytes, qint64 offset = 0)
{
    QFile file(path);
    return file.open(QFile::ReadWrite) && file.seek(offset) && file.write(bytes) == bytes.size();
}

void check_table(const QString& device, qint64 size, qint64 sectorSize)
{
    const QByteArray record = content(device, 0, 512);
    const qint64 start = kMiB / sectorSize;
    QCOMPARE(record.right(2), QByteArray("\x55\xAA"));
    QCOMPARE(record.at(446), '\x80');
    QCOMPARE(record.at(450), '\x0C');
    QCOMPARE(qFromLittleEndian<quint32>(record.data() + 454), start);
    QCOMPARE(qFromLittleEndian<quint32>(record.data() + 458),
             std::min(size / sectorSize, qint64{0xFFFFFFFF}) - start);
    QCOMPARE(record.mid(462, 48), QByteArray(48, '\0'));
}

void check_file(const QString& device, const QString& name, const QString& source)
{
    const Run copy = run("mtype", {"-i", device + "@@1M", "::" + name});
    QVERIFY2(copy.code == 0, copy.error);
    QVERIFY2(copy.output == content(source), qPrintable(name));
}

} // namespace

class FormatTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString image_ = dir_.filePath("image");
    QString picture_ = dir_.filePath("source.png");
    const QString program_ = FORMAT_PROGRAM;
    const QString boot_ = QFileInfo(program_).dir().filePath("boot/");

    // A drive full of old data, with a pattern up to both ends.
    bool makeImage(qint64 size)
    {
        const QByteArray old = QByteArray("VANTRELLE").repeated(4 * kMiB);
        QFile::remove(image_);
        return write(image_, old) && QFile::resize(image_, size) &&
               write(image_, old.left(kMiB), size - kMiB);
    }

    bool putTool(const QString& name, const QByteArray& script)
    {
        const QString path = dir_.filePath("bin/" + name);
        return QDir(dir_.path()).mkpath("bin") && write(path, "#!/bin/sh\n" + script) &&
               QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner);
    }

    Run runWithTools()
    {
        return run(program_, {image_, picture_},
                   dir_.filePath("bin") + ":" + qEnvironmentVariable("PATH"));
    }

    void checkFiles(const QString& device)
    {
        check_file(device, "/picture.png", picture_);
        check_file(device, "/EFI/BOOT/BOOTX64.EFI", boot_ + "bootx64.efi");
        check_file(device, "/EFI/BOOT/BOOTIA32.EFI", boot_ + "bootia32.efi");
    }

private slots:
    void init()
    {
        QDir(dir_.filePath("bin")).removeRecursively();
        QImage image(800, 600, QImage::Format_ARGB32);
        image.fill(QColor(40, 90, 160));
        QVERIFY(image.save(picture_, "PNG"));
    }

    void formats_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("the smallest image") << kSmallest;
        QTest::newRow("an odd number of sectors and a part of one") << kSmallest + 512 + 7;
        QTest::newRow("clusters of 512 bytes") << 64 * kMiB;
        QTest::newRow("clusters of 4096 bytes") << 300 * kMiB;
        QTest::newRow("more sectors than the table can count") << 3 * kMiB * kMiB;
    }
    void formats()
    {
        QFETCH(qint64, size);
        if (!makeImage(size))
            QSKIP("the file system under the temporary folder has no files of this size");
        const Run done = run(program_, {image_, picture_});
        QVERIFY2(done.code == 0, done.error);
        check_table(image_, size, 512);
        QCOMPARE(content(image_, 0, 440), content(boot_ + "boot.img", 0, 440));
        const QByteArray core = content(boot_ + "core.img");
        QVERIFY(content(image_, 512, core.size()) == core);
        checkFiles(image_);
        QVERIFY(run("mlabel", {"-s", "-i", image_ + "@@1M", "::"}).output.contains("ERASED"));
        if (size > 1024 * kMiB)
            return; // fsck.fat wants a copy of the partition
        QVERIFY(write(dir_.filePath("partition"), content(image_, kMiB)));
        QVERIFY(QFile::resize(dir_.filePath("partition"), size - kMiB));
        const Run check = run("fsck.fat", {"-n", "-v", dir_.filePath("partition")});
        QVERIFY2(check.code == 0 && check.output.contains("32 bit entries"), check.output);
    }

    void leavesNoOldSignature()
    {
        QVERIFY(makeImage(64 * kMiB));
        QCOMPARE(run("sh", {"-c", "echo , | sfdisk -q -X gpt \"$0\"", image_}).code, 0);
        QCOMPARE(run("mkfs.ext4", {"-q", "-E", "offset=1048576", image_, "60M"}).code, 0);
        QVERIFY(content(image_, 63 * kMiB).contains("EFI PART"));
        QCOMPARE(run(program_, {image_, picture_}).code, 0);
        QVERIFY(!content(image_, 63 * kMiB).contains("EFI PART"));
        QCOMPARE(run("wipefs", {"-n", "-i", "-O", "TYPE", "--noheadings", image_}).output.trimmed(),
                 "dos");
        QCOMPARE(run("blkid", {"-p", "-O", "1048576", "-o", "value", "-s", "TYPE", image_})
                     .output.trimmed(),
                 "vfat");
    }

    void emulationChangesNothing()
    {
        QVERIFY(makeImage(kSmallest));
        const QByteArray before = content(image_);
        const Run done = run(program_, {image_ + "-emulate", picture_});
        QCOMPARE(done.code, 0);
        QVERIFY2(done.output.contains("would write"), done.output);
        QVERIFY(content(image_) == before);
    }

    void refuses_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("code");
        QTest::addColumn<QByteArray>("message");
        const auto row = [](const char* name, const QStringList& arguments, int code,
                            const char* message) {
            QTest::newRow(name) << arguments << code << QByteArray(message);
        };
        row("a device one sector too small", {"small", "source.png"}, 1, "too small");
        row("the same in emulation", {"small-emulate", "source.png"}, 1, "too small");
        row("a device that is not there", {"nothing", "source.png"}, 1, "No such file");
        row("a folder as device", {".", "source.png"}, 1, "neither");
        row("a picture that is not there", {"image", "nothing"}, 1, "No such file");
        row("a picture without a byte", {"image", "empty.png"}, 1, "not a PNG");
        row("a picture that was cut short", {"image", "cut.png"}, 1, "not a PNG");
        row("a folder as picture", {"image", "."}, 1, "regular file");
        row("no picture", {"image"}, 2, "usage");
        row("three arguments", {"image", "source.png", "x"}, 2, "usage");
        row("an unknown option", {"-f", "source.png"}, 2, "-f");
        row("emulation of nothing", {"-emulate", "source.png"}, 2, "-emulate");
        row("no device name", {"", "source.png"}, 2, "device");
    }
    void refuses()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, message);
        QVERIFY(makeImage(kSmallest));
        QVERIFY(QFile::exists(dir_.filePath("small")) ||
                QFile::copy(image_, dir_.filePath("small")));
        QVERIFY(QFile::resize(dir_.filePath("small"), kSmallest - 512));
        QVERIFY(write(dir_.filePath("empty.png"), ""));
        QVERIFY(write(dir_.filePath("cut.png"), content(picture_).chopped(1)));
        QVERIFY(QDir::setCurrent(dir_.path()));
        const QByteArray before = content(image_) + content("small");
        const Run done = run(program_, arguments);
        QTEST(done.code, "code");
        QVERIFY2(done.error.contains(message) && done.error.count('\n') == 1, done.error);
        QVERIFY(content(image_) + content("small") == before);
        QVERIFY(!QFile::exists("nothing"));
    }

    void refusesWithoutToolOrBootImage()
    {
        QVERIFY(makeImage(kSmallest));
        const QByteArray before = content(image_);
        const Run noTool = run(program_, {image_, picture_}, "/nonexistent");
        const QString alone = dir_.filePath("alone");
        QVERIFY(QFile::copy(program_, alone));
        const Run noImages = run(alone, {image_, picture_});
        QCOMPARE(noTool.code + 10 * noImages.code, 11);
        QVERIFY2(noTool.error.contains("not found"), noTool.error);
        QVERIFY2(noImages.error.contains("boot/"), noImages.error);
        QVERIFY(content(image_) == before);
    }

    void noticesFailingTools_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("a tool that fails says why")
            << "mkfs.fat" << QByteArray("echo broken >&2; exit 3")
            << QByteArray("exit code 3): broken");
        QTest::newRow("a tool that is killed")
            << "mmd" << QByteArray("kill -9 $$") << QByteArray("signal 9");
        QTest::newRow("a picture that arrives short is found by reading back")
            << "mcopy"
            << QByteArray(
                   "test \"$1\" != - || exec /bin/sh -c 'head -c 99 | /usr/bin/mcopy - $0' \"$2\"\n"
                   "exec /usr/bin/mcopy \"$@\"")
            << QByteArray("picture.png reads back differently");
        QTest::newRow("a file system that was not made")
            << "mkfs.fat" << QByteArray("exit 0") << QByteArray("make directory EFI");
    }
    void noticesFailingTools()
    {
        QFETCH(QString, tool);
        QFETCH(QByteArray, script);
        QFETCH(QByteArray, message);
        QVERIFY(makeImage(kSmallest) && putTool(tool, script));
        const Run done = runWithTools();
        QCOMPARE(done.code, 1);
        QVERIFY2(done.error.contains(message), done.error);
        QVERIFY(!done.output.contains("formatted"));
    }

    void toolsEndWithTheProgram()
    {
        const QString pidFile = dir_.filePath("pid");
        QVERIFY(makeImage(kSmallest));
        QVERIFY(putTool("mkfs.fat", "echo $$ > " + pidFile.toLatin1() + "; exec sleep 100"));
        QProcess process;
        process.start("env", {"PATH=" + dir_.filePath("bin") + ":" + qEnvironmentVariable("PATH"),
                              program_, image_, picture_});
        QTRY_VERIFY(content(pidFile).endsWith('\n'));
        process.kill();
        QVERIFY(process.waitForFinished());
        // Gone, or dead and waiting for its new parent to take notice.
        const QString status = "/proc/" + content(pidFile).trimmed() + "/stat";
        QTRY_VERIFY(!QFile::exists(status) || content(status).contains(") Z "));
    }

    void formatsADriveWithLargeSectors()
    {
        QVERIFY(makeImage(300 * kMiB));
        const Run attach = run("losetup", {"--show", "-f", "-b", "4096", image_});
        if (attach.code != 0)
            QSKIP("no loop device with 4096-byte sectors (needs root)");
        const QString device = attach.output.trimmed();
        const auto detach = qScopeGuard([&] { run("losetup", {"-d", device}); });
        const Run done = run(program_, {device, picture_});
        QVERIFY2(done.code == 0, done.error);
        check_table(device, 300 * kMiB, 4096);
        QCOMPARE(content(device, 0, 440), QByteArray(440, '\0'));
        checkFiles(device);
    }

    void manPageShowsEveryOption()
    {
        const QByteArray page = content(FORMAT_MAN_PAGE).replace("\\-", "-");
        const Run help = run(program_, {"--help"});
        QCOMPARE(help.code, 0);
        auto options = QRegularExpression("-[a-z-]+\\b").globalMatch(help.output);
        QVERIFY(options.hasNext());
        while (options.hasNext()) {
            const QByteArray option = options.next().captured().toLatin1();
            QVERIFY2(page.contains(option), option);
        }
    }
};

QTEST_GUILESS_MAIN(FormatTest)
#include "format_test.moc"
