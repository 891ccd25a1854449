#include "tests/diskservice/private_bus.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QXmlStreamReader>

namespace {

const QString kName = "org.freedesktop.UDisks";
const QString kPath = "/org/freedesktop/UDisks";
const QString kDevice = "org.freedesktop.UDisks.Device";
const QString kGet = "org.freedesktop.DBus.Properties.Get";
const QString kGetAll = "org.freedesktop.DBus.Properties.GetAll";
const QString kIntrospect = "org.freedesktop.DBus.Introspectable.Introspect";
const QString kEnumerate = kName + ".EnumerateDevices";
constexpr qulonglong kMiB = 1 << 20;

const QByteArray kMbrTable = "label: dos\n"
                             "start=2048, size=81920, type=c\n"
                             "start=84000, size=16384, type=83\n"
                             "start=102400, size=20480, type=5\n"
                             "start=104448, size=8192, type=82\n";
const QByteArray kGptCommands = "g\nn\n3\n\n+20M\nw\n";
const QByteArray kFatLabel = "HOSTILE    ";
const QByteArray kHostileLabel = "\xFF<%2&\"\xC3   x";

bool run(const QString& tool, const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.start(tool, arguments);
    process.write(input);
    process.closeWriteChannel();
    return process.waitForFinished() && process.exitCode() == 0;
}

// Replaces every copy of the text in the file by another of the same length.
bool replace_text(const QString& path, const QByteArray& before, const QByteArray& after)
{
    QFile file(path);
    const bool isOpen = file.open(QIODevice::ReadWrite);
    QByteArray bytes = file.readAll();
    return isOpen && bytes.contains(before) && file.seek(0) &&
           file.write(bytes.replace(before, after)) == file.size();
}

QSet<QString> options_in(const QByteArray& text)
{
    static const QRegularExpression kOption("--[a-z]+|[a-z-]+=");
    QSet<QString> found;
    for (auto it = kOption.globalMatch(QString::fromUtf8(text)); it.hasNext();) {
        found += it.next().captured();
    }
    return found;
}

} // namespace

class DiskServiceTest : public QObject {
    Q_OBJECT

public slots:
    void note(const QDBusMessage& signal)
    {
        signals_ +=
            signal.member() + ' ' + signal.arguments().at(0).value<QDBusObjectPath>().path();
    }

private slots:
    void initTestCase();
    void property_data();
    void property();
    void error_data();
    void error();
    void commandLine_data();
    void commandLine();
    void introspectionIsWellFormedEverywhere();
    void manualNamesTheOptionsOfHelp();
    void lossOfTheBusEndsTheService();
    void snapshotStaysUntilTheNextEnumeration();
    void changeOfAFileThatWasAtRestIsSeen();
    void terminationIsCleanEnd();

private:
    [[nodiscard]] QString file(const QString& name) const { return images_.filePath(name); }

    // The object path of the device with this file name.
    [[nodiscard]] QString object(const QString& name) const
    {
        QString path = kPath + "/devices/";
        for (const QChar c : file(name)) {
            path += c.isLetterOrNumber() ? QString(c) : QString::asprintf("_%02x", c.unicode());
        }
        return path;
    }

    // The member has its interface's name before it.
    [[nodiscard]] QDBusMessage call(const QString& path, const QString& member,
                                    const QVariantList& arguments = {}) const
    {
        QDBusMessage message = QDBusMessage::createMethodCall(
            kName, path, member.section('.', 0, -2), member.section('.', -1));
        message.setArguments(arguments);
        return connection_.call(message);
    }

    QSet<QString> enumerate()
    {
        QSet<QString> paths;
        const QVariant reply = call(kPath, kEnumerate).arguments().value(0);
        for (const auto& path : qdbus_cast<QList<QDBusObjectPath>>(reply)) {
            paths += path.path();
        }
        return paths;
    }

    [[nodiscard]] QVariant value(const QString& name, const QString& property) const
    {
        const QVariant reply = call(object(name), kGetAll, {kDevice}).arguments().value(0);
        return qdbus_cast<QVariantMap>(reply).value(property);
    }

    QTemporaryDir images_;
    PrivateBus bus_;
    ServiceProcess service_;
    QDBusConnection connection_{QString()};
    QStringList signals_;
};

void DiskServiceTest::initTestCase()
{
    qputenv("PATH", qgetenv("PATH") + ":/usr/sbin:/sbin");
    for (const char* tool : {"dbus-daemon", "sfdisk", "fdisk", "mkfs.fat", "mke2fs"}) {
        if (QStandardPaths::findExecutable(tool).isEmpty()) {
            QSKIP(qPrintable(QString(tool) + " is not installed"));
        }
    }
    const QString mbr = file("used,1.img");
    QVERIFY(run("truncate", {"-s67108964", mbr}) && run("sfdisk", {"-q", mbr}, kMbrTable));
    QVERIFY(run("mkfs.fat", {"-F32", "-n", "HOSTILE", "--offset=2048", mbr, "40960"}));
    QVERIFY(replace_text(mbr, kFatLabel, kHostileLabel));
    QVERIFY(run("mke2fs", {"-qt", "ext4", "-Llinux", "-E", "offset=43008000", mbr, "8M"}));
    const QString gpt = file("big4");
    QVERIFY(run("truncate", {"-s64M", gpt}) && run("fdisk", {"-b4096", gpt}, kGptCommands));
    QVERIFY(run("mkfs.fat", {"-F16", "-s1", "-S4096", "--offset=256", gpt, "20480"}));
    QVERIFY(run("mke2fs", {"-q", "-Lwhole", file("disc"), "8M"}));
    QVERIFY(run("truncate", {"-s0", file("empty")}));

    QVERIFY(bus_.start());
    connection_ = QDBusConnection::connectToBus(bus_.address(), "test");
    service_.start(bus_, DISKSERVICE,
                   {"--image", file("used\\,1.img,model=A\\,B %1,serial=0\\\\7"),
                    "--image=" + file("big4,sector-size=4096"), "--image", file("disc,optical"),
                    "--image", file("empty"), "--image", file("missing")});
    QVERIFY(ServiceProcess::waitForName(connection_, kName) && service_.says("missing: stat: "));
    for (const char* name : {"DeviceAdded", "DeviceRemoved", "DeviceChanged"}) {
        QVERIFY(connection_.connect(kName, kPath, kName, name, this, SLOT(note(QDBusMessage))));
    }
}

void DiskServiceTest::property_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("expected");
    const auto row = [](const char* name, const QString& device, const char* property,
                        const QVariant& expected) {
        QTest::newRow(name) << device << QString(property) << expected;
    };
    const QString mbr = "used,1.img";
    const QVariant mbrPath = QVariant::fromValue(QDBusObjectPath(object(mbr)));
    row("a drive's size has the odd tail", mbr, "DeviceSize", 64 * kMiB + 100);
    row("a sector has 512 bytes", mbr, "DeviceBlockSize", qulonglong(512));
    row("a model keeps its comma", mbr, "DriveModel", "A,B %1");
    row("a serial keeps its backslash", mbr, "DriveSerial", "0\\7");
    row("all partitions count", mbr, "PartitionTableCount", 4);
    row("a partitioned drive has no usage", mbr, "IdUsage", "");
    row("a drive is mounted nowhere", mbr, "DeviceMountPaths", QStringList());
    row("a partition is a partition", mbr + "1", "DeviceIsPartition", true);
    row("a partition knows its drive", mbr + "1", "PartitionSlave", mbrPath);
    row("a FAT32 has a version", mbr + "1", "IdVersion", "FAT32");
    row("a label need not be UTF-8", mbr + "1", "IdLabel", QString::fromLatin1(kHostileLabel));
    row("a partition has a type", mbr + "1", "PartitionType", "0x0c");
    row("an ext4 is a file system", mbr + "2", "IdUsage", "filesystem");
    row("a partition has an offset", mbr + "2", "PartitionOffset", qulonglong(84000 * 512));
    row("a partition has a size", mbr + "2", "DeviceSize", 8 * kMiB);
    row("an extended partition has little room", mbr + "3", "DeviceSize", qulonglong(1024));
    row("a logical partition has a number", mbr + "5", "PartitionNumber", 5);
    row("a partition after a digit gets a p", "big4p3", "DeviceFile", file("big4p3"));
    row("a size is right in large sectors", "big4p3", "PartitionSize", 20 * kMiB);
    row("a file system in large sectors is found", "big4p3", "IdVersion", "FAT16");
    row("an optical disc is one", "disc", "DeviceIsOpticalDisc", true);
    row("an empty file has no size", "empty", "DeviceSize", qulonglong(0));
}

// Through GetAll and Get, with the exact type.
void DiskServiceTest::property()
{
    QFETCH(QString, device);
    QFETCH(QString, property);
    QFETCH(QVariant, expected);
    const QVariant one = call(object(device), kGet, {kDevice, property}).arguments().value(0);
    for (const QVariant& found : {value(device, property), one.value<QDBusVariant>().variant()}) {
        QCOMPARE(found.metaType(), expected.metaType());
        QCOMPARE(found, expected);
    }
}

void DiskServiceTest::error_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("member");
    QTest::addColumn<QVariantList>("arguments");
    QTest::addColumn<QString>("name");
    const auto row = [](const char* name, const QString& path, const QString& member,
                        const QVariantList& arguments, const QString& error) {
        QTest::newRow(name) << path << member << arguments << error;
    };
    const QString drive = object("empty");
    row("a device that is not there", object("missing"), kGetAll, {kDevice}, "UnknownObject");
    row("what is below a device", drive + "/x", kIntrospect, {}, "UnknownObject");
    row("another interface", drive, kGetAll, {kName}, "UnknownInterface");
    row("another property", drive, kGet, {kDevice, "Size"}, "UnknownProperty");
    row("a missing argument", drive, kGet, {kDevice}, "InvalidArgs");
    row("an argument of another type", drive, kGetAll, {7}, "InvalidArgs");
    row("another method", drive, kDevice + ".FilesystemMount", {"", ""}, "UnknownMethod");
    row("a method of another object", drive, kEnumerate, {}, "UnknownInterface");
}

void DiskServiceTest::error()
{
    QFETCH(QString, path);
    QFETCH(QString, member);
    QFETCH(QVariantList, arguments);
    QFETCH(QString, name);
    QCOMPARE(call(path, member, arguments).errorName(), "org.freedesktop.DBus.Error." + name);
}

void DiskServiceTest::commandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QByteArray>("message");
    const auto row = [](const char* name, const QStringList& arguments, int exitCode,
                        const QByteArray& message) {
        QTest::newRow(name) << arguments << exitCode << message;
    };
    row("an unknown option", {"--frob"}, 2, "--frob");
    row("no source", {}, 2, "--image");
    row("no file", {"--image", ",optical"}, 2, ",optical");
    row("a sector size between", {"--image", "a,sector-size=1024"}, 2, "1024");
    row("an escape of nothing", {"--image", "a\\"}, 2, "a\\");
    row("an image named as a partition", {"--image", "a", "--image", "a2"}, 2, "/a2");
    row("names that only begin alike", {"--image", "a1", "--image", "a12"}, 1, "another program");
}

void DiskServiceTest::commandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, message);
    ServiceProcess program;
    program.start(bus_, DISKSERVICE, arguments);
    QCOMPARE(program.exitCode(), exitCode);
    QVERIFY2(program.says(message), program.said());
}

void DiskServiceTest::introspectionIsWellFormedEverywhere()
{
    const QSet<QString> devices = enumerate();
    QCOMPARE(devices.size(), 9);
    QSet<QString> children;
    for (const QString& path : devices + QSet<QString>{kPath, kPath + "/devices"}) {
        QXmlStreamReader xml(call(path, kIntrospect).arguments().value(0).toString());
        QVERIFY(xml.readNextStartElement());
        while (xml.readNextStartElement()) {
            if (xml.name() == QString("node")) {
                children += path + '/' + xml.attributes().value("name").toString();
            }
            xml.skipCurrentElement();
        }
        QVERIFY2(!xml.hasError(), qPrintable(path + ": " + xml.errorString()));
    }
    QCOMPARE(children, devices + QSet<QString>{kPath + "/devices"});
}

void DiskServiceTest::manualNamesTheOptionsOfHelp()
{
    QProcess help;
    help.start(DISKSERVICE, {"--help"});
    QVERIFY(help.waitForFinished() && help.exitCode() == 0);
    const QSet<QString> expected = options_in(help.readAllStandardOutput());
    QFile manual(DISKSERVICE_MANUAL);
    QVERIFY(manual.open(QIODevice::ReadOnly) && expected.contains("--image"));
    QCOMPARE(options_in(manual.readAll().replace("\\", "")), expected);
}

void DiskServiceTest::lossOfTheBusEndsTheService()
{
    PrivateBus bus;
    ServiceProcess service;
    QVERIFY(bus.start());
    service.start(bus, DISKSERVICE, {"--image", file("empty")});
    const auto connection = QDBusConnection::connectToBus(bus.address(), "lost");
    QVERIFY(ServiceProcess::waitForName(connection, kName));
    bus.stop();
    QCOMPARE(service.exitCode(), 1);
    service.start(bus, DISKSERVICE, {"--image", file("empty")});
    QCOMPARE(service.exitCode(), 1);
    QVERIFY(service.says("system bus: connect: "));
}

void DiskServiceTest::snapshotStaysUntilTheNextEnumeration()
{
    const QSet<QString> before = enumerate();
    QVERIFY(replace_text(file("used,1.img"), "linux", "other"));
    QVERIFY(QFile::rename(file("disc"), file("missing")));
    QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("linux"));
    QCOMPARE(value("disc", "IdLabel"), QVariant("whole"));
    QCOMPARE(signals_, QStringList());

    const QSet<QString> now = enumerate();
    QCOMPARE(before - now, QSet<QString>{object("disc")});
    QCOMPARE(now - before, QSet<QString>{object("missing")});
    QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("other"));
    QTRY_COMPARE(signals_,
                 QStringList({"DeviceRemoved " + object("disc"), "DeviceAdded " + object("missing"),
                              "DeviceChanged " + object("used,1.img2")}));
    enumerate();
    QVERIFY(QFile::remove(file("empty")));
    enumerate();
    QVERIFY(service_.says("empty: stat: "));
    QCOMPARE(service_.said().count("disc: stat: "), 1);
}

// Such a file is not read again while it is unchanged; the wait lets it come to rest.
void DiskServiceTest::changeOfAFileThatWasAtRestIsSeen()
{
    QTest::qWait(4500);
    enumerate();
    signals_.clear();
    enumerate();
    QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("other"));
    QVERIFY(replace_text(file("used,1.img"), "other", "third"));
    enumerate();
    QCOMPARE(value("used,1.img2", "IdLabel"), QVariant("third"));
    QTRY_COMPARE(signals_, QStringList{"DeviceChanged " + object("used,1.img2")});
}

void DiskServiceTest::terminationIsCleanEnd()
{
    QCOMPARE(service_.end(SIGTERM), 0);
}

QTEST_GUILESS_MAIN(DiskServiceTest)
#include "disk_service_test.moc"
