#include "tests/support/script_and_log.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

constexpr qint64 kMiB = 1 << 20;
constexpr qint64 kSmallest = qint64{68630} * 512; // 2048 + 32 + 2 * 512 + 65526 sectors

struct Run {
    int code = -1;
    QByteArray output; // and errors
};

Run run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished() || process.exitStatus() != QProcess::NormalExit) {
        return {};
    }
    return {process.exitCode(), process.readAll()};
}

QByteArray content(const QString& path, qint64 offset = 0, qint64 size = 1024 * kMiB)
{
    QFile file(path);
    const bool isReadable = file.open(QFile::ReadOnly) && file.seek(offset);
    return isReadable ? file.read(qMin(size, file.size() - offset))
                      : "unreadable " + path.toLatin1();
}

bool write(const QString& path, const QByteArray& bytes, qint64 offset = 0)
{
    QFile file(path);
    return file.open(QFile::ReadWrite) && file.seek(offset) && file.write(bytes) == bytes.size();
}

} // namespace

class FormatTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    QString image_ = dir_.filePath("image");
    QString picture_ = dir_.filePath("source.png");
    const QString program_ = BINARIES "/lib/format";
    const QString boot_ = QFileInfo(program_).path() + "/boot/";

    // A drive full of old data, with a pattern up to both ends.
    bool makeImage(qint64 size)
    {
        const QByteArray old = QByteArray("VANTRELLE").repeated(4 * kMiB);
        QFile::remove(image_);
        return write(image_, old) && QFile::resize(image_, size) &&
               write(image_, old.left(kMiB), size - kMiB);
    }

private slots:
    void initTestCase()
    {
        qputenv("PATH", dir_.filePath("bin").toLatin1() + ':' + qgetenv("PATH") + ":/sbin");
        QVERIFY(QFile::copy(QFINDTESTDATA("../../resources/app.png"), picture_));
        QVERIFY(QDir::setCurrent(dir_.path()));
        QVERIFY(QFile::copy(program_, "alone") && write("cut.png", content(picture_).chopped(1)));
        QVERIFY(makeImage(kSmallest - 512) && QFile::copy(image_, "small"));
    }
    void init() { QVERIFY(QDir("bin").removeRecursively() && QDir().mkdir("bin")); }

    void formats_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<int>("sectorSize");
        QTest::newRow("the smallest image") << kSmallest << 512;
        QTest::newRow("an odd number of sectors and a part of one") << kSmallest + 519 << 512;
        QTest::newRow("clusters of 4096 bytes") << 300 * kMiB << 512;
        QTest::newRow("sectors of 4096 bytes") << 300 * kMiB << 4096;
        QTest::newRow("more sectors than the table can count") << 3 * kMiB * kMiB << 512;
    }
    void formats()
    {
        QFETCH(qint64, size);
        QFETCH(int, sectorSize);
        const bool isMade = makeImage(size);
        const QString device =
            sectorSize == 512 ? image_
                              : run("losetup", {"--show", "-f", "-b4096", image_}).output.trimmed();
        const auto detach = qScopeGuard([&] { run("losetup", {"-d", device}); });
        if (!isMade || !QFile::exists(device)) {
            QSKIP("no file of this size, or no loop device with large sectors (needs root)");
        }
        const Run done = run(program_, {device, picture_});
        QVERIFY2(done.code == 0, done.output);

        const qint64 start = kMiB / sectorSize;
        const qint64 end = std::min(size / sectorSize, qint64{0xFFFFFFFF});
        const QString entry = " : start= %1, size= %2, type=c, bootable";
        const QString table = run("sfdisk", {"-d", device}).output.simplified();
        QVERIFY2(table.endsWith(entry.arg(start).arg(end - start)), qPrintable(table));
        QCOMPARE(table.count("start="), 1);
        const QByteArray core = content(boot_ + "core.img");
        QCOMPARE(content(device, 0, 440) == content(boot_ + "boot.img", 0, 440), sectorSize == 512);
        QCOMPARE(content(device, 512, core.size()) == core, sectorSize == 512);
        for (const QString name :
             {"picture.png", "EFI/BOOT/BOOTX64.EFI", "EFI/BOOT/BOOTIA32.EFI"}) {
            const QString image = boot_ + name.section('/', -1).toLower();
            QCOMPARE(run("mcopy", {"-ni", device + "@@1M", "::/" + name, "copy"}).code, 0);
            QVERIFY(content("copy") == content(name == "picture.png" ? picture_ : image));
        }
        QVERIFY(run("mlabel", {"-s", "-i", device + "@@1M", "::"}).output.contains("ERASED"));
        if (size < 1024 * kMiB) { // fsck.fat wants a copy of the partition
            QVERIFY(write("partition", content(device, kMiB)));
            const Run check = run("fsck.fat", {"-n", "-v", "partition"});
            QVERIFY2(check.code == 0 && check.output.contains("32 bit entries"), check.output);
        }
    }

    void leavesNoOldSignature()
    {
        QVERIFY(makeImage(64 * kMiB));
        QCOMPARE(run("sh", {"-c", "echo , | sfdisk -q -X gpt image"}).code, 0);
        QCOMPARE(run("mkfs.ext4", {"-q", "-E", "offset=1048576", image_, "60M"}).code, 0);
        QVERIFY(content(image_, 63 * kMiB).contains("EFI PART"));
        QCOMPARE(run(program_, {image_, picture_}).code, 0);
        QVERIFY(!content(image_, 63 * kMiB).contains("EFI PART"));
        QCOMPARE(run("wipefs", {"-niOTYPE", "--noheadings", image_}).output.trimmed(), "dos");
    }

    void changesNothing_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("emulation") << "%1 image-emulate source.png" << 0 << "would write";
        QTest::newRow("a device too small") << "%1 small source.png" << 1 << "too small";
        QTest::newRow("a picture that is not there") << "%1 image x.png" << 1 << "No such file";
        QTest::newRow("a picture cut short") << "%1 image cut.png" << 1 << "not a PNG";
        QTest::newRow("another drive")
            << "env VANTRELLE_SIZE=4096 %1 image source.png" << 1 << "another drive is there now";
        QTest::newRow("three arguments") << "%1 image source.png x" << 2 << "usage";
        QTest::newRow("no tools") << "env PATH=/none %1 image source.png" << 1 << "not found";
        QTest::newRow("no boot images") << "./alone image source.png" << 1 << "boot/";
    }
    void changesNothing()
    {
        QFETCH(QString, command);
        QFETCH(QString, message);
        QVERIFY(makeImage(kSmallest));
        const QByteArray before = content("image") + content("small");
        QStringList words = command.split(' ').replaceInStrings("%1", program_);
        const Run done = run(words.takeFirst(), words);
        QTEST(done.code, "code");
        QVERIFY2(done.output.contains(message.toLatin1()) && done.output.count('\n') == 1,
                 done.output);
        QVERIFY(content("image") + content("small") == before);
    }

    void noticesFailingTools_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::newRow("3): broken") << "mkfs.fat: echo broken >&2; exit 3";
        QTest::newRow("make directory EFI") << "mkfs.fat: exit 0";
        QTest::newRow("picture.png reads back differently")
            << "mcopy: test $1 != - || dd of=/dev/null bs=1 count=9; /usr/bin/mcopy \"$@\"";
    }
    // A tool that is found before the system's; the row's name stands in the message.
    void noticesFailingTools()
    {
        QFETCH(QString, tool);
        const QString path = "bin/" + tool.section(": ", 0, 0);
        QVERIFY(makeImage(kSmallest));
        write_script(path, tool.section(": ", 1).toLatin1());
        const Run done = run(program_, {image_, picture_});
        QCOMPARE(done.code, 1);
        QVERIFY2(done.output.contains(QTest::currentDataTag()), done.output);
        QVERIFY(!done.output.contains("formatted"));
    }

    // By the first byte of the boot code, of the partition's type, and behind the first sector.
    void readsTheFirstTrackBack()
    {
        for (const auto& [place, what] : std::initializer_list<std::pair<QString, QByteArray>>{
                 {"0", "boot code"}, {"450", "partition table"}, {"512", "boot code"}}) {
            QVERIFY(makeImage(kSmallest));
            const Run done = run("env", {"LD_PRELOAD=" BINARIES "/libforgetful_drive.so",
                                         "ASAN_OPTIONS=verify_asan_link_order=0",
                                         "FORGETS=" + place, program_, image_, picture_});
            QCOMPARE(done.code, 1);
            QVERIFY2(done.output.contains("check: the " + what + " reads back differently"),
                     done.output);
        }
    }
};

QTEST_GUILESS_MAIN(FormatTest)
#include "format_test.moc"
