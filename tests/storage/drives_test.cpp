#include "app/debug_log.h"
#include "storage/drives.h"
#include "tests/storage/fake_disk_service.h"
#include "tests/storage/private_bus.h"

#include <QRegularExpression>
#include <QTest>

#include <optional>

namespace {

QString text(const std::string& bytes)
{
    return QString::fromLatin1(bytes.data(), static_cast<qsizetype>(bytes.size()));
}

// "device|model|serial|sectors|sectorSize", then "|device|size|comment" a partition.
QStringList described(const std::vector<Drive>& drives)
{
    QStringList lines;
    for (const Drive& drive : drives) {
        QStringList fields{text(drive.device()), text(drive.model()), text(drive.serial()),
                           QString::number(drive.sectors()), QString::number(drive.sectorSize())};
        for (const Drive::Partition& partition : drive.partitions())
            fields << text(partition.device()) << QString::number(partition.size())
                   << text(partition.comment());
        lines << fields.join(u'|');
    }
    return lines;
}

// The log since a position, without the numbers of the source lines.
QString logged_since(qsizetype position)
{
    static const QRegularExpression number(QStringLiteral("Drives\\([0-9]+\\)"));
    return dbg_string().mid(position).replace(number, QStringLiteral("Drives"));
}

QStringList logged_problems(const QString& log)
{
    static const QRegularExpression problem(QStringLiteral("\\(skip\\)|failed"));
    return log.split(u'\n').filter(problem).replaceInStrings(QStringLiteral("Drives: "), QString());
}

QString drive_line(const char* name)
{
    return QStringLiteral("/dev/%1|Model %1|Serial %1|976562500|512").arg(QLatin1String(name));
}

QString partition_fields(const char* name, const char* comment = "DATA / FAT32")
{
    return QStringLiteral("|/dev/%1|1000000000|%2")
        .arg(QLatin1String(name), QLatin1String(comment));
}

} // namespace

class DrivesTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void listsDrives_data();
    void listsDrives();
    void logsEachStep();
    void listsNothingWhenTheListFails_data();
    void listsNothingWhenTheListFails();
    void findsTheServiceWhenItComesLate();

private:
    PrivateBus bus_;
};

void DrivesTest::initTestCase()
{
    dbg_init(DBG_TYPE_STRING, 1);
    QVERIFY(bus_.start());
}

void DrivesTest::listsDrives_data()
{
    QTest::addColumn<QList<FakeDevice>>("devices");
    QTest::addColumn<QStringList>("drives");
    QTest::addColumn<QStringList>("problems");

    const QVariant none;
    const FakeDevice drive = fake_drive("sda");
    const FakeDevice partition = fake_partition("sda1");
    const auto row = [](const char* name, const QList<FakeDevice>& devices,
                        const QStringList& drives, const char* problem = nullptr) {
        QTest::newRow(name) << devices << drives
                            << (problem != nullptr ? QStringList{QString::fromLatin1(problem)}
                                                   : QStringList{});
    };
    const auto commentRow = [&](const char* name, const FakeDevice& device, const char* comment) {
        row(name, {drive, device}, {drive_line("sda") + partition_fields("sda1", comment)});
    };

    row("no devices", {}, {});
    row("drives and partitions come sorted by device",
        {fake_drive("sdb"), fake_partition("sdb2"), fake_partition("sdb10"), fake_partition("sdb1"),
         drive},
        {drive_line("sda"), drive_line("sdb") + partition_fields("sdb1") +
                                partition_fields("sdb10") + partition_fields("sdb2")});
    row("the beginning of its path attaches a partition",
        {fake_partition("sdaa1"), fake_drive("sdaa"), drive, partition, fake_partition("sdc1")},
        {drive_line("sda") + partition_fields("sda1") + partition_fields("sdaa1"),
         drive_line("sdaa") + partition_fields("sdaa1")});
    row("paths compare as unsigned bytes",
        {drive.with("DeviceFile", QStringLiteral("/dev/\u00e9")), fake_drive("sdz")},
        {drive_line("sdz"), QStringLiteral("/dev/\u00e9|Model sda|Serial sda|976562500|512")});
    row("a rest of a sector does not count, and numbers pass 32 bits",
        {drive.with("DeviceSize", 20'000'000'004'095ULL).with("DeviceBlockSize", 4096ULL)},
        {QStringLiteral("/dev/sda|Model sda|Serial sda|4882812500|4096")});
    row("missing texts are empty", {drive.with("DriveModel", none).with("DriveSerial", none)},
        {QStringLiteral("/dev/sda|||976562500|512")});
    row("hostile texts are kept as bytes",
        {drive.with("DriveModel", QStringLiteral("%1<b>\n\x01\u00fc\u4e2d"))},
        {QStringLiteral("/dev/sda|%1<b>\n\x01\u00fc?|Serial sda|976562500|512")});
    row("a slow answer is waited for", {{drive.name, drive.properties, {}, {}, 300}},
        {drive_line("sda")});
    row("a failing device does not hide the next one",
        {{drive.name, drive.properties, QStringLiteral("gone %1"), {}}, fake_drive("sdb")},
        {drive_line("sdb")}, "GetAll failed: gone %1");

    row("an optical disc, with or without a size",
        {drive.with("DeviceIsOpticalDisc", true).with("DeviceSize", none)}, {},
        "optical disc (skip)");
    row("an empty card reader", {drive.with("DeviceSize", 0ULL)}, {}, "invalid size (skip)");
    row("a size that is no number", {drive.with("DeviceSize", QStringList{QStringLiteral("1")})},
        {}, "invalid size (skip)");
    row("neither size", {drive.with("DeviceSize", none).with("DeviceBlockSize", none)}, {},
        "invalid size (skip)");
    row("sectors without a size", {drive.with("DeviceBlockSize", 0ULL)}, {},
        "invalid sector size (skip)");
    row("no sector size", {drive.with("DeviceBlockSize", none)}, {}, "invalid sector size (skip)");
    row("another kind of device", {drive.with("DeviceIsDrive", false)}, {},
        "not a drive or partition (skip)");
    row("no properties", {{drive.name, {}, {}, {}}}, {}, "not a drive or partition (skip)");
    row("an answer that is no map", {{drive.name, drive.properties, {}, 42}}, {},
        "not a drive or partition (skip)");
    row("a partition without a file system", {drive, partition.with("IdType", none)},
        {drive_line("sda")}, "empty type (skip)");

    row("a partition without a size is kept", {drive, partition.with("DeviceSize", none)},
        {drive_line("sda") + QStringLiteral("|/dev/sda1|0|DATA / FAT32")});
    commentRow("FAT is named by its version", partition, "DATA / FAT32");
    commentRow("a FAT without a label", partition.with("IdLabel", none), "FAT32");
    commentRow("a FAT without a version", partition.with("IdVersion", none), "DATA / ");
    commentRow("another type is in upper case", partition.with("IdType", QStringLiteral("ntfs")),
               "DATA / NTFS");
}

void DrivesTest::listsDrives()
{
    QFETCH(QList<FakeDevice>, devices);
    FakeDiskService service(bus_.address());
    service.setDevices(devices);
    const qsizetype logStart = dbg_string().size();
    QTEST(described(get_drives()), "drives");
    QTEST(logged_problems(logged_since(logStart)), "problems");
}

void DrivesTest::logsEachStep()
{
    FakeDiskService service(bus_.address());
    service.setDevices({fake_partition("sda1"), fake_drive("sdb"), fake_drive("sda")});
    const qsizetype logStart = dbg_string().size();
    QCOMPARE(get_drives().size(), 2U);
    QCOMPARE(logged_since(logStart), QStringLiteral(R"(Drives: get_drives()
Drives: *** devicePath: /org/freedesktop/UDisks/devices/sda1 ***
Drives: partition: /dev/sda1
  size: 1000000000
  comment: DATA / FAT32
Drives: *** devicePath: /org/freedesktop/UDisks/devices/sdb ***
Drives: device: /dev/sdb
  model: Model sdb
  serial: Serial sdb
  sectors: 976562500
  sectorSize: 512
Drives: *** devicePath: /org/freedesktop/UDisks/devices/sda ***
Drives: device: /dev/sda
  model: Model sda
  serial: Serial sda
  sectors: 976562500
  sectorSize: 512
Drives: 2 drives found
)"));
}

void DrivesTest::listsNothingWhenTheListFails_data()
{
    QTest::addColumn<QString>("error");
    QTest::addColumn<QVariant>("wrongType");
    QTest::addColumn<QString>("logged"); // how the message begins; the rest is the bus's

    QTest::newRow("no service") << QString() << QVariant() << "The name org.freedesktop.UDisks was";
    QTest::newRow("the service refuses") << "no <b>%1" << QVariant() << "no <b>%1";
    QTest::newRow("the service answers with a text")
        << QString() << QVariant(QStringLiteral("/dev/sda")) << "Unexpected reply signature: ";
}

void DrivesTest::listsNothingWhenTheListFails()
{
    QFETCH(QString, error);
    QFETCH(QVariant, wrongType);
    QFETCH(QString, logged);
    std::optional<FakeDiskService> service;
    if (!error.isEmpty() || wrongType.isValid()) {
        service.emplace(bus_.address());
        service->setDevices({fake_drive("sda")});
        service->setEnumeration(error, wrongType);
    }
    const qsizetype logStart = dbg_string().size();
    QVERIFY(get_drives().empty());
    const QStringList lines = logged_since(logStart).split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[1].startsWith(QStringLiteral("Drives: EnumerateDevices failed: ") + logged),
             qPrintable(lines[1]));
}

void DrivesTest::findsTheServiceWhenItComesLate()
{
    bus_.stop();
    QVERIFY(get_drives().empty()); // the bus went away
    QVERIFY(get_drives().empty()); // and there is none to connect to
    QVERIFY(bus_.start());
    QVERIFY(get_drives().empty()); // a bus without the service
    FakeDiskService service(bus_.address());
    service.setDevices({fake_drive("sda")});
    QCOMPARE(described(get_drives()), QStringList{drive_line("sda")});
}

QTEST_GUILESS_MAIN(DrivesTest)
#include "drives_test.moc"
