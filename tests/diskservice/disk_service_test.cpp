#include "tests/support/private_bus.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDateTime>
#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

const QString kName = "org.freedesktop.UDisks";
const QString kPath = "/org/freedesktop/UDisks";
const QString kDevice = "org.freedesktop.UDisks.Device";
const QString kGet = "org.freedesktop.DBus.Properties.Get";
const QString kGetAll = "org.freedesktop.DBus.Properties.GetAll";
const QString kEnumerate = kName + ".EnumerateDevices";
const QString kMount = kDevice + ".FilesystemMount";
const QString kUnmount = kDevice + ".FilesystemUnmount";
const QStringList kNone;
constexpr qulonglong kMiB = 1 << 20;

// Start, size and type of each partition, in sectors.
const QByteArray kMbrTable = "2048,81920,c\n84000,16384,83\n102400,20480,5\n104448,8192,82\n";
const QByteArray kGptCommands = "g\nn\n3\n\n+20M\nn\n4\n\n+20M\nw\n";

bool run(const QString& tool, const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.start(tool, arguments);
    process.write(input);
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0;
}

// Puts a new label of the same length into the ext file system that starts at the offset.
bool relabel(const QString& path, int offset, const QByteArray& label)
{
    const QString place = "seek=" + QString::number(offset + 1024 + 120); // ext4(5)
    return run("dd", {"conv=notrunc", "bs=1", place, "of=" + path}, label);
}

// What the made-up computer's devices are to show, in one line each.
const QStringList kShown{"DeviceFile",       "DeviceSize",        "DeviceBlockSize",
                         "DriveModel",       "DriveSerial",       "PartitionOffset",
                         "DeviceMountPaths", "DeviceDiskSequence"};
const QStringList kDevices{"/dev/cciss/c0d0|4608000|512||77|0||1",
                           "/dev/fd0|0|512|||0||1",
                           "/dev/mmcblk0|4608000|512|CARD||0||1",
                           "/dev/nvme0n1|2560000000000|512|Fast one|NV 1|0||17",
                           "/dev/nvme0n1p1|8388608|512|||1048576|/mnt/old one|17",
                           "/dev/sdf|0|512|||0||1",
                           "/dev/sdg|6320640|512|Hangs on open||0||1",
                           "/dev/sr0|4608000|512|DVD \"q\" %2 \\xzz|S_1|0||1",
                           "/dev/vda|4608000|4096|Virtio drive|V1|0||0"};
const QByteArray kLeftOut = "sda sdb sdc sdd sde dm-0 loop0 nbd0 mmcblk0boot0 nvme0c0n1 mtdblock0";

// Takes this program and what it starts to mounts of their own, with an empty /media and a folder
// below /dev for files.
bool has_own_mounts()
{
    return ::geteuid() == 0 && QFile::exists("/dev/loop-control") && ::unshare(CLONE_NEWNS) == 0 &&
           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("none", "/media", "tmpfs", 0, nullptr) == 0 &&
           ::mount("none", "/dev/pts", "tmpfs", 0, nullptr) == 0;
}

// The object path of the device with this file name.
QString object(QString name)
{
    return kPath + "/devices/" + name.replace(',', "_2c").replace('.', "_2e");
}

} // namespace

class DiskServiceTest : public QObject {
    Q_OBJECT

    QTemporaryDir images_;
    bool canMount_ = false;
    PrivateBus bus_;
    ServiceProcess service_;
    QDBusConnection connection_{QString()};
    QStringList signals_;

    [[nodiscard]] QString file(const QString& name) const { return images_.filePath(name); }

    // The member has its interface's name before it.
    [[nodiscard]] QDBusMessage call(const QString& path, const QString& member,
                                    const QVariantList& arguments = {}) const
    {
        QDBusMessage message = QDBusMessage::createMethodCall(
            kName, path, member.section('.', 0, -2), member.section('.', -1));
        message.setArguments(arguments);
        return connection_.call(message);
    }

    [[nodiscard]] QVariant value(const QString& name, const QString& property) const
    {
        const QVariant reply = call(object(name), kGetAll, {kDevice}).arguments().value(0);
        return qdbus_cast<QVariantMap>(reply).value(property);
    }

    // The logical sector size of every loop device that lies on the images.
    [[nodiscard]] QList<int> loopDevices() const
    {
        QProcess losetup;
        losetup.start("losetup", {"--noheadings", "--output=LOG-SEC,BACK-FILE"});
        losetup.waitForFinished();
        QList<int> sizes;
        const QStringList lines = QString(losetup.readAllStandardOutput()).split('\n');
        for (const QString& line : lines.filter(images_.path())) {
            sizes += line.simplified().section(' ', 0, 0).toInt();
        }
        return sizes;
    }

public slots:
    void note(const QDBusMessage& sent)
    {
        signals_ += sent.member() + ' ' + qdbus_cast<QDBusObjectPath>(sent.arguments()[0]).path();
    }

private slots:
    void initTestCase()
    {
        qputenv("PATH", qgetenv("PATH") + ":/usr/sbin:/sbin");
        canMount_ = has_own_mounts() && QDir().mkpath("/media/linux");
        const QString mbr = file("used,1.img");
        QVERIFY(run("truncate", {"-s67108964", mbr}) && run("sfdisk", {"-qXdos", mbr}, kMbrTable));
        QVERIFY(run("mke2fs", {"-qtext4", "-Llinux", "-Eoffset=43008000", mbr, "8M"}));
        const QString gpt = file("big4");
        QVERIFY(run("truncate", {"-s64M", gpt}) && run("fdisk", {"-b4096", gpt}, kGptCommands));
        const QString label = "-L../\x01\u00e9\u0416";
        QVERIFY(run("mke2fs", {"-qtext4", "-b4096", label, "-Eoffset=22020096", gpt, "20M"}));
        QVERIFY(run("mke2fs", {"-q", "-Lwhole", file("disc"), "8M"}));
        QVERIFY(relabel(file("disc"), 0, "\xFF<%2&"));
        QVERIFY(run("truncate", {"-s0", file("empty")}));
        QVERIFY(!canMount_ || run("truncate", {"-s1M", "/dev/pts/sdx"}));

        QVERIFY(bus_.start());
        connection_ = QDBusConnection::connectToBus(bus_.address(), "test");
        service_.start(bus_, BINARIES "/diskservice",
                       {"--image", file("used\\,1.img,model=A\\,B\n%1,serial=0\\\\7"),
                        "--image=" + file("big4,sector-size=4096"), "--image", file("disc,optical"),
                        "--image", file("empty"), "--image", file("missing"), "--image",
                        "/dev/pts/sdx"});
        QVERIFY(ServiceProcess::waitForName(connection_, kName));
        QVERIFY(service_.says("missing: stat: "));
        QVERIFY(service_.says(canMount_ ? "/dev/pts/sdx: a regular file below /dev" : "sdx: stat"));
        for (const char* name : {"DeviceAdded", "DeviceRemoved", "DeviceChanged"}) {
            QVERIFY(connection_.connect(kName, kPath, kName, name, this, SLOT(note(QDBusMessage))));
        }
    }

    void property_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("property");
        QTest::addColumn<QVariant>("expected");
        const auto row = [](const char* name, const char* device, const char* property,
                            const QVariant& expected) {
            QTest::newRow(name) << device << property << expected;
        };
        const QVariant drive = QVariant::fromValue(QDBusObjectPath(object("used,1.img")));
        row("a size has the odd tail", "used,1.img", "DeviceSize", 64 * kMiB + 100);
        row("a model keeps its comma, on one line", "used,1.img", "DriveModel", "A,B?%1");
        row("a serial keeps its backslash", "used,1.img", "DriveSerial", "0\\7");
        row("a partition knows its drive", "used,1.img1", "PartitionSlave", drive);
        row("a label need not be UTF-8", "disc", "IdLabel", "\u00ff<%2&");
        row("an extended one has little room", "used,1.img3", "DeviceSize", qulonglong(1024));
        row("a logical partition has a number", "used,1.img5", "PartitionNumber", 5);
        row("a size is right in large sectors", "big4p3", "PartitionSize", 20 * kMiB);
        row("an optical disc is one", "disc", "DeviceIsOpticalDisc", true);
        row("an empty file has no size", "empty", "DeviceSize", qulonglong(0));
        row("no medium was put in for an image", "empty", "DeviceDiskSequence", qulonglong(0));
    }
    // Through Get, with the exact type; the other tests use GetAll.
    void property()
    {
        QFETCH(QString, device);
        QFETCH(QString, property);
        QFETCH(QVariant, expected);
        const QDBusMessage reply = call(object(device), kGet, {kDevice, property});
        const QVariant found = reply.arguments().value(0).value<QDBusVariant>().variant();
        QCOMPARE(found.metaType(), expected.metaType());
        QCOMPARE(found, expected);
    }

    void error_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("member");
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QString>("error");
        const auto row = [](const char* name, const char* device, const QString& member,
                            const QVariantList& arguments, const char* error) {
            QTest::newRow(name) << device << member << arguments << error;
        };
        row("no such device", "missing", kGetAll, {kDevice}, "UnknownObject");
        row("a missing argument", "empty", kGet, {kDevice}, "InvalidArgs");
        row("a mount without options", "empty", kMount, {""}, "InvalidArgs");
        row("an unsafe option", "big4p4", kMount, {"", QStringList("suid")}, "InvalidOption");
        row("one behind a comma", "big4p4", kMount, {"", QStringList("ro,dev")}, "InvalidOption");
        row("a type of no drive", "big4p4", kMount, {"tmpfs", kNone}, "FilesystemDriverMissing");
        row("no file system", "big4", kMount, {"", kNone}, "Failed");
        row("no medium", "empty", kMount, {"", kNone}, "Failed");
        row("an unmount of what is not mounted", "big4p4", kUnmount, {kNone}, "Failed");
        if (::geteuid() != 0) {
            row("no root", "big4p4", kMount, {"", kNone}, "PermissionDenied");
        }
    }
    void error()
    {
        QFETCH(QString, device);
        QFETCH(QString, member);
        QFETCH(QVariantList, arguments);
        QTEST(call(object(device), member, arguments).errorName().section('.', -1), "error");
    }

    void wrongCommandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("unknown option: --frob") << QStringList{"--frob"};
        QTest::newRow("--root: no directory: /dev/null") << QStringList{"--root=/dev/null"};
        QTest::newRow("neither 512 nor 4096: 1") << QStringList{"--image=a,sector-size=1"};
        QTest::newRow("nothing follows the last backslash") << QStringList{"--image=a\\"};
        QTest::newRow("cannot be shown: /a?forged") << QStringList{"--image=/a\nforged"};
        QTest::newRow("a2: cannot be told from ") << QStringList{"--image=a", "--image=a2"};
    }
    void wrongCommandLine()
    {
        QFETCH(QStringList, arguments);
        ServiceProcess program;
        program.start(bus_, BINARIES "/diskservice", arguments);
        QCOMPARE(program.exitCode(), 2);
        QVERIFY2(program.says(QTest::currentDataTag()), program.said());
    }

    void fileSystemIsMountedAndUnmounted_data()
    {
        if (!canMount_) {
            QSKIP("mounting needs root, loop devices and /media");
        }
        QTest::addColumn<QString>("device");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("directory");
        QTest::addColumn<bool>("isReadOnly");
        const QStringList readOnly{"noexec", "ro"};
        QTest::newRow("odd label") << "big4p4" << kNone << "/media/_.__\u00e9_" << false;
        QTest::newRow("label taken") << "used,1.img2" << readOnly << "/media/linux1" << true;
        QTest::newRow("optical disc") << "disc" << kNone << "/media/\u00ff<%2&" << true;
    }
    void fileSystemIsMountedAndUnmounted()
    {
        QFETCH(QString, device);
        QFETCH(QStringList, options);
        QFETCH(QString, directory);
        const QDBusMessage mounted = call(object(device), kMount, {"", options});
        if (mounted.errorName().endsWith("DriverMissing")) {
            QSKIP("this kernel has no driver for it");
        }
        QCOMPARE(mounted.arguments().value(0), QVariant(directory));
        QCOMPARE(value(device, "DeviceMountPaths"), QVariant(QStringList(directory)));
        QCOMPARE(call(object(device), kMount, {"", options}).errorName(), kName + ".Error.Failed");
        struct statvfs status = {};
        QCOMPARE(::statvfs(qPrintable(directory), &status), 0);
        QVERIFY((status.f_flag & ST_NOSUID) != 0 && (status.f_flag & ST_NODEV) != 0);
        QTEST((status.f_flag & ST_RDONLY) != 0, "isReadOnly");
        QCOMPARE(loopDevices(), {value(device, "DeviceBlockSize").toInt()});

        const int held = ::open(qPrintable(directory), O_RDONLY);
        const QDBusMessage busy = call(object(device), kUnmount, {kNone});
        ::close(held);
        QCOMPARE(busy.errorName(), kName + ".Error.Busy");
        QCOMPARE(call(object(device), kUnmount, {kNone}).errorMessage(), QString());
        QCOMPARE(value(device, "DeviceIsMounted"), QVariant(false));
        QVERIFY(!QFile::exists(directory));
        QTRY_COMPARE(loopDevices(), QList<int>());
    }

    void mountMadeByOthersIsSeen()
    {
        if (!canMount_) {
            QSKIP("mounting needs root, loop devices and /media");
        }
        const QString directory = "/media/linux";
        QVERIFY(run("mount", {"-oro,loop,offset=43008000,sizelimit=8388608", file("used,1.img"),
                              directory}));
        QVERIFY(!call(kPath, kEnumerate).arguments().isEmpty());
        QCOMPARE(value("used,1.img2", "DeviceMountPaths"), QVariant(QStringList(directory)));
        QCOMPARE(value("used,1.img", "DeviceIsMounted"), QVariant(false));
        QCOMPARE(call(object("used,1.img2"), kUnmount, {kNone}).errorMessage(), QString());
        QVERIFY(QFile::exists(directory));
        QTRY_COMPARE(loopDevices(), QList<int>());
    }

    // A file is not read again while it is unchanged; the wait lets all come to rest.
    void snapshotStaysUntilTheNextEnumeration()
    {
        QTest::qWait(4500);
        const QVariant devices = call(kPath, kEnumerate).arguments().value(0);
        QCOMPARE(qdbus_cast<QList<QDBusObjectPath>>(devices).size(), 10);
        signals_.clear();
        QVERIFY(relabel(file("used,1.img"), 43008000, "other"));
        QVERIFY(QFile::rename(file("disc"), file("missing")));
        QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("linux"));
        QCOMPARE(value("disc", "IdUsage"), QVariant("filesystem"));

        QVERIFY(!call(kPath, kEnumerate).arguments().isEmpty());
        QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("other"));
        QCOMPARE(value("missing", "IdUsage"), QVariant("filesystem"));
        QVERIFY(service_.says("disc: stat: "));
        QTRY_COMPARE(signals_, QStringList({"DeviceRemoved " + object("disc"),
                                            "DeviceAdded " + object("missing"),
                                            "DeviceChanged " + object("used,1.img2")}));
    }

    void terminationIsCleanEnd()
    {
        const QString directory = "/media/_.__\u00e9_";
        const QDBusMessage mounted = call(object("big4p4"), kMount, {"", kNone});
        QCOMPARE(mounted.type() == QDBusMessage::ReplyMessage, canMount_);
        const int held = ::open(qPrintable(directory), O_RDONLY);
        QCOMPARE(service_.end(SIGTERM), 0);
        ::close(held);
        QVERIFY(!QFile::exists(directory));
        QTRY_COMPARE(loopDevices(), QList<int>());
    }

    void lossOfTheBusEndsTheService()
    {
        service_.start(bus_, BINARIES "/diskservice", {"--image", file("empty")});
        QVERIFY(ServiceProcess::waitForName(connection_, kName));
        bus_.stop();
        QCOMPARE(service_.exitCode(), 1);
    }

    void computersDrivesAreListedAndNothingElse()
    {
        QCOMPARE(QProcess::execute(QFINDTESTDATA("made-up-drives"), {file("computer")}), 0);
        const QString open = "--config-file=" + QFINDTESTDATA("bus.conf");
        QVERIFY(bus_.start(::geteuid() == 0 ? open : "--session"));
        connection_ = QDBusConnection::connectToBus(bus_.address(), "computer");
        service_.start(bus_, BINARIES "/diskservice", {"--root", file("computer")});
        QVERIFY(ServiceProcess::waitForName(connection_, kName));
        const auto start = QDateTime::currentDateTime();
        const QVariant all = call(kPath, kEnumerate).arguments().value(0);
        const qint64 tookMs = start.msecsTo(QDateTime::currentDateTime());
        QVERIFY2(tookMs < 2000, qPrintable(QString("it took %1 ms").arg(tookMs)));
        QStringList names;
        for (const auto& path : qdbus_cast<QList<QDBusObjectPath>>(all)) {
            names += path.path().section('/', -1);
        }
        QCOMPARE(names.filter("sdz").size(), 520);
        names.erase(names.begin() + 7, names.begin() + 527);
        for (QString& name : names) {
            QStringList shown;
            for (const QString& property : kShown) {
                shown += value(name, property).toString();
            }
            name = shown.join('|');
        }
        QCOMPARE(names, kDevices);
        QVERIFY(service_.says("/dev/sdg: does not answer"));
        for (const QByteArray& name : kLeftOut.split(' ')) {
            QVERIFY2(service_.says("/dev/" + name + ": left out: "), name);
        }
        QVERIFY(service_.says("/dev/sda: left out: the running system came from it (/live/medium"));
    }

    void onlyRootHasAccess_data()
    {
        const bool isRoot = ::geteuid() == 0; // Then the policy is in force already.
        if (isRoot) {
            const QString folder = bus_.address().section('=', 1).section('/', 0, -2);
            QVERIFY(::chmod(qPrintable(folder), 0711) == 0);
        } else {
            bus_.stop();
            QVERIFY(bus_.start("--config-file=" + QFINDTESTDATA("bus.conf")));
        }
        const QString own = "org.freedesktop.DBus.RequestName";
        const QString bus = "--dest=org.freedesktop.DBus";
        QTest::addColumn<QStringList>("call");
        QTest::addColumn<QByteArray>("answer");
        QTest::newRow("owning another name")
            << QStringList{bus, "/", own, "string:org.example", "uint32:4"}
            << QByteArray("int32 1");
        QTest::newRow("owning the service's name")
            << QStringList{bus, "/", own, "string:" + kName, "uint32:4"}
            << QByteArray("AccessDenied");
        if (isRoot) { // Nobody else could start the service.
            QTest::newRow("calling the service")
                << QStringList{"--dest=" + kName, kPath, kEnumerate} << QByteArray("AccessDenied");
        }
    }
    void onlyRootHasAccess()
    {
        QFETCH(QStringList, call);
        QFETCH(QByteArray, answer);
        QStringList command{"dbus-send", "--print-reply", "--bus=" + bus_.address()};
        if (::geteuid() == 0) {
            command = QStringList{"setpriv", "--clear-groups", "--reuid=65534"} + command;
        }
        QProcess client;
        client.setProcessChannelMode(QProcess::MergedChannels);
        client.start("env", command + call);
        QVERIFY(client.waitForFinished());
        const QByteArray said = client.readAll();
        QVERIFY2(said.contains(answer), said);
    }
};

QTEST_GUILESS_MAIN(DiskServiceTest)
#include "disk_service_test.moc"
