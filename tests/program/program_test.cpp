#include "tests/diskservice/private_bus.h"

#include <QDir>
#include <QFile>
#include <QtEndian>

#include <algorithm>

namespace {

constexpr qsizetype kSector = 512;
constexpr qsizetype kPartitionStart = 1 << 20;
constexpr int kWholeRunMs = 60000; // about 21 seconds for discovery and countdown
// Takes the driver longer to write than it may live on.
constexpr qsizetype kBigImageBytes = qsizetype{8} << 30;
constexpr int kKillMs = 2000;

QByteArray content(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// A drive in use: no two sectors are the same, and each holds the words "old content".
QByteArray old_content(qsizetype size)
{
    QByteArray bytes;
    for (qsizetype sector = 0; bytes.size() < size; ++sector) {
        const QByteArray words = "old content " + QByteArray::number(sector) + ' ';
        bytes += words.repeated(kSector / words.size() + 1).left(kSector);
    }
    return bytes.left(size);
}

quint32 number32(const QByteArray& bytes, qsizetype offset)
{
    return qFromLittleEndian<quint32>(bytes.constData() + offset);
}

// The places of a FAT32 file system (Microsoft FAT specification 1.03), in sectors from the
// start of the drive.
class Fat32 {
public:
    explicit Fat32(const QByteArray& image) : image_(image)
    {
        const char* boot = image.constData() + kPartitionStart;
        const auto reserved = qFromLittleEndian<quint16>(boot + 14);
        table_ = kPartitionStart / kSector + reserved;
        data_ = table_ +
                static_cast<uchar>(boot[16]) * qsizetype{number32(image, kPartitionStart + 36)};
        end_ = kPartitionStart / kSector + number32(image, kPartitionStart + 32);
        sectorsPerCluster_ = static_cast<uchar>(boot[13]);
    }

    [[nodiscard]] qsizetype dataStart() const { return data_; }
    [[nodiscard]] bool isUsed(qsizetype sector) const
    {
        const qsizetype cluster = (sector - data_) / sectorsPerCluster_ + 2;
        return sector < end_ && (number32(image_, table_ * kSector + cluster * 4) << 4) != 0;
    }

private:
    const QByteArray& image_;
    qsizetype table_;
    qsizetype data_;
    qsizetype end_;
    qsizetype sectorsPerCluster_;
};

// What is wrong with the image of an erased and formatted drive; empty when nothing is.
QString fault(const QByteArray& image)
{
    const QByteArray pattern = QByteArray("VANTRELLE").repeated(57).left(kSector);
    if (image.contains("old content")) {
        return QStringLiteral("old content is left");
    }
    if (image[446] != '\x80' || image[450] != '\x0C' || image.mid(510, 2) != "\x55\xAA" ||
        image.mid(kPartitionStart + 82, 5) != "FAT32") {
        return QStringLiteral("there is no active FAT32 partition");
    }
    const Fat32 fat(image);
    qsizetype erased = 0;
    for (qsizetype sector = fat.dataStart(); sector < image.size() / kSector; ++sector) {
        if (image.mid(sector * kSector, kSector) == pattern) {
            ++erased;
        } else if (!fat.isUsed(sector)) {
            return QStringLiteral("sector %1 is not erased").arg(sector);
        }
    }
    return erased * kSector > image.size() / 2 ? QString() : QStringLiteral("little is erased");
}

// How many processes have this text among their arguments.
qsizetype processes_with(const QByteArray& argument)
{
    const QStringList pids =
        QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs);
    return std::count_if(pids.cbegin(), pids.cend(), [&](const QString& pid) {
        return content(QStringLiteral("/proc/%1/cmdline").arg(pid)).split('\0').contains(argument);
    });
}

} // namespace

/// Two programs run at the same time, each on a bus of its own.
class ProgramTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void touchesNothingDuringTheCountdown();
    void leavesNoDriverBehindWhenKilled();
    void erasesAndFormatsEveryDrive();

private:
    struct Run {
        QTemporaryDir directory = {};
        PrivateBus bus = {};
        ServiceProcess service = {};
        ServiceProcess program = {};

        [[nodiscard]] QString file(const char* name) const
        {
            return directory.filePath(QLatin1String(name));
        }
        [[nodiscard]] QByteArray log() const { return content(file("log")); }
        void makeImage(const char* name, const QByteArray& bytes, qsizetype size) const;
        void start(const QStringList& imageNames);
    };

    Run whole_;
    Run killed_;
    QByteArray oldContent_;
};

void ProgramTest::Run::makeImage(const char* name, const QByteArray& bytes, qsizetype size) const
{
    QFile image(file(name));
    QVERIFY(image.open(QIODevice::WriteOnly));
    QCOMPARE(image.write(bytes), bytes.size());
    QVERIFY(image.resize(size));
}

void ProgramTest::Run::start(const QStringList& imageNames)
{
    // A library directory of its own, because the pictures are made there.
    QVERIFY(QDir(directory.path()).mkdir(QStringLiteral("lib")));
    for (const char* name : {"driver", "format", "boot"}) {
        QVERIFY(QFile::link(QStringLiteral(HELPERS "/") + QLatin1String(name),
                            file("lib/") + QLatin1String(name)));
    }
    QStringList images;
    for (const QString& name : imageNames) {
        images << QStringLiteral("--image") << directory.filePath(name);
    }
    QVERIFY(bus.start());
    service.start(bus, QStringLiteral(DISKSERVICE), images);
    // The program skips two characters after "lib=".
    program.start(bus, QStringLiteral(PROGRAM),
                  {QStringLiteral("lib=..") + file("lib"), QStringLiteral("dbg=") + file("log")});
}

void ProgramTest::initTestCase()
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    oldContent_ = old_content(48 << 20);
    whole_.makeImage("one", oldContent_, 40 << 20);
    whole_.makeImage("two", oldContent_, (48 << 20) - 3 * kSector);
    whole_.start({QStringLiteral("one"), QStringLiteral("two")});
    killed_.makeImage("big", {}, kBigImageBytes);
    killed_.start({QStringLiteral("big")});
}

void ProgramTest::touchesNothingDuringTheCountdown()
{
    QTRY_VERIFY_WITH_TIMEOUT(whole_.log().contains("will begin erasing in 3 seconds..."),
                             kWholeRunMs);
    QCOMPARE(content(whole_.file("one")), oldContent_.left(40 << 20));
}

void ProgramTest::leavesNoDriverBehindWhenKilled()
{
    const QByteArray device = "device=" + killed_.file("big").toLatin1();
    QTRY_COMPARE_WITH_TIMEOUT(processes_with(device), 1, kWholeRunMs);
    QCOMPARE(killed_.program.end(SIGKILL), -1);
    QTRY_COMPARE_WITH_TIMEOUT(processes_with(device), 0, kKillMs);
    QVERIFY(!killed_.log().contains("finished: "));
}

void ProgramTest::erasesAndFormatsEveryDrive()
{
    QTRY_COMPARE_WITH_TIMEOUT(whole_.log().count("finished: exitCode: 0, exitStatus: 0"), 4,
                              kWholeRunMs);
    const QByteArray log = whole_.log();
    QVERIFY(log.startsWith("*** VantrellePlus ***\n"));
    QCOMPARE(log.count("finished: "), 4);
    QCOMPARE(log.count("create WIPE AND FORMAT worker for drive"), 2);
    whole_.program.end(SIGTERM);
    QCOMPARE(fault(content(whole_.file("one"))), QString());
    QCOMPARE(fault(content(whole_.file("two"))), QString());
}

QTEST_GUILESS_MAIN(ProgramTest)
#include "program_test.moc"
