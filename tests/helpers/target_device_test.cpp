#include "helpers/common/drive_user.h"
#include "helpers/common/target_device.h"
#include "helpers/common/which_drive.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <sys/sysmacros.h>

class TargetDeviceTest : public QObject {
    Q_OBJECT

    QTemporaryDir dir_;
    const QString device_ = dir_.filePath("sys/dev/block/8:16");

    bool write(const QString& name, const QByteArray& text) const
    {
        const QString path = dir_.filePath(name);
        QFile file(path);
        return QDir().mkpath(QFileInfo(path).path()) && file.open(QIODevice::WriteOnly) &&
               file.write(text) == text.size();
    }

private slots:
    void init() { QVERIFY(QDir(dir_.filePath("sys")).removeRecursively()); }

    // The files' names with their texts, and what is made of them.
    void identity_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::newRow("") << QStringList{};
        QTest::newRow("ST1000, Z1") << QStringList{"device/model=ST1000   \n", "device/serial=Z1"};
        QTest::newRow("ST1000, A1") << QStringList{"device/model=ST1000", "device/serial= \n",
                                                   "device/vpd_pg80=...." + QString("  A1\n")};
        QTest::newRow("naa.5000c5") << QStringList{"device/wwid=naa.5000c5\n"};
        QTest::newRow("SD16G, 0x1") << QStringList{"device/name=SD16G", "serial=0x1"};
        QTest::newRow("bad error: x, 7 7")
            << QStringList{"device/model=\nbad\r\nerror: x\x1b", "serial=7\t\t7"};
    }
    void identity()
    {
        QFETCH(QStringList, files);
        for (const QString& file : files) {
            QVERIFY(write("sys/dev/block/8:16/" + file.section('=', 0, 0),
                          file.section('=', 1).toLatin1()));
        }
        const QByteArray expected = QTest::currentDataTag();
        QCOMPARE(QByteArray::fromStdString(model_and_serial(device_.toStdString())), expected);
        QVERIFY(write("sys/dev/block/8:16/sdb1/partition", "1"));
        const std::string partition = (device_ + "/sdb1").toStdString();
        QCOMPARE(QByteArray::fromStdString(model_and_serial(partition)), expected);
    }

    // A USB drive without the page answers ENXIO; this file answers EIO.
    void identityThatCannotBeRead()
    {
        QVERIFY(write("sys/dev/block/8:16/device/model", "Stick"));
        QVERIFY(QFile::link("/proc/self/mem", device_ + "/device/vpd_pg80"));
        QCOMPARE(model_and_serial(device_.toStdString()), std::string("Stick"));
    }

    void user_data()
    {
        QTest::addColumn<QString>("file");
        QTest::newRow("") << "sys/dev/block/8:16/holders-of-others/x=";
        QTest::newRow("held by md0") << "sys/dev/block/8:16/holders/md0=";
        QTest::newRow("held by dm-3") << "sys/dev/block/8:16/sdb1/holders/dm-3=";
        QTest::newRow("mounted at /a\\040b")
            << "proc/self/mountinfo=1 2 0:5 / / rw - tmpfs none rw\n"
               "36 35 8:16 / /a\\040b rw,noatime shared:1 - ext3 /dev/root rw\n";
        QTest::newRow("mounted at /home")
            << "proc/self/mountinfo=36 35 8:17 /@home /home rw - ext3 /dev/root rw\n";
    }
    void user()
    {
        QFETCH(QString, file);
        QVERIFY(write("proc/self/mountinfo", "1 2 8:1 / / rw - ext4 /dev/root rw\n"));
        QVERIFY(write("sys/dev/block/8:16/sdb1/partition", "1") &&
                write("sys/dev/block/8:16/sdb1/dev", "8:17\n"));
        QVERIFY(write(file.section('=', 0, 0), file.section('=', 1).toLatin1()));
        const std::string found = find_drive_user(makedev(8, 16), dir_.path().toStdString());
        QCOMPARE(found.c_str(), QTest::currentDataTag());
    }

    void placeOfAFile_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("fileSystem"); // 1 is that of /, 2 that of /dev
        QTest::addColumn<bool>("isDevMounted");
        QTest::addColumn<bool>("isRefused");
        QTest::newRow("a file elsewhere") << "/home/dev/image" << 1 << true << false;
        QTest::newRow("in the place of a drive") << "/dev/sda" << 2 << true << true;
        QTest::newRow("deeper there") << "/dev/disk/by-id/x" << 2 << true << true;
        QTest::newRow("under another name of it") << "/mnt/sda" << 2 << true << true;
        QTest::newRow("shared memory") << "/dev/shm/image" << 3 << true << false;
        QTest::newRow("mounted over a device") << "/dev/sda" << 3 << true << true;
        QTest::newRow("elsewhere, /dev a plain folder") << "/image" << 1 << false << false;
        QTest::newRow("/dev a plain folder") << "/dev/disk/x" << 1 << false << true;
    }
    void placeOfAFile()
    {
        QFETCH(QString, path);
        QFETCH(int, fileSystem);
        QFETCH(bool, isDevMounted);
        struct stat file = {};
        struct stat folder = {};
        struct stat parent = {};
        file.st_dev = static_cast<dev_t>(fileSystem);
        folder.st_dev = isDevMounted ? 2 : 1;
        parent.st_dev = 1;
        QTEST(is_among_devices(path.toStdString(), file, folder, parent), "isRefused");
    }
};

QTEST_GUILESS_MAIN(TargetDeviceTest)
#include "target_device_test.moc"
