#include "storage/disk_service.h"
#include "storage/drives.h"
#include "tests/support/bus_test.h"
#include "tests/support/script_and_log.h"

#include <sstream>

namespace {

// A line "device|model|serial|sectors|sectorSize" a drive, with "|device|size|comment" a partition.
QByteArray described(const std::vector<Drive>& drives)
{
    std::ostringstream text;
    for (const Drive& drive : drives) {
        text << drive.device() << '|' << drive.model() << '|' << drive.serial() << '|'
             << drive.sectors() << '|' << drive.sectorSize();
        for (const Drive::Partition& part : drive.partitions()) {
            text << '|' << part.device() << '|' << part.size() << '|' << part.comment();
        }
        text << '\n';
    }
    return QByteArray::fromStdString(text.str());
}

QString log_of_get_drives()
{
    const qsizetype start = dbg_string().size();
    [[maybe_unused]] const auto drives = get_drives();
    return log_since(start).remove("Drives: ");
}

QByteArray drive_line(const char* name, const QByteArray& partitions = {})
{
    const QByteArray line = "/dev/NAME|Model NAME|Serial NAME|976562500|512" + partitions + '\n';
    return QByteArray(line).replace("NAME", name);
}

} // namespace

class DrivesTest : public BusTest {
    Q_OBJECT

private slots:
    void listsDrives_data()
    {
        QTest::addColumn<QList<FakeDevice>>("devices");
        QTest::addColumn<QByteArray>("expected");

        const FakeDevice drive = fake_drive("sda");
        const QByteArray partitions = "|/dev/sdaa10|1000000000|DATA / NTFS|/dev/sdaa2|0|FAT32";
        QTest::newRow("all comes sorted, the beginning of its path attaches a partition")
            << QList{fake_partition("sdaa2").with("IdLabel", {}).with("DeviceSize", {}),
                     fake_drive("sdaa"), fake_partition("sdaa10").with("IdType", "ntfs"), drive,
                     fake_partition("sdc1")}
            << drive_line("sda", partitions) + drive_line("sdaa", partitions);
        QTest::newRow("a hostile model, no serial, 64 bits, a rest of a sector")
            << QList{drive.with("DriveModel", u"%1<b>\n\u00fc\u4e2d"_qs)
                         .with("DriveSerial", {})
                         .with("DeviceSize", 20'000'000'004'095ULL)
                         .with("DeviceBlockSize", 4096ULL)}
            << QByteArray("/dev/sda|%1<b>\n\xfc?||4882812500|4096\n");
        QTest::newRow("a FAT of no variant keeps the slash")
            << QList{drive, fake_partition("sda1").with("IdVersion", {})}
            << drive_line("sda", "|/dev/sda1|1000000000|DATA / ");
        QTest::newRow("a slow answer is waited for")
            << QList{FakeDevice{"sda", drive.properties, {}, {}, 300}} << drive_line("sda");
    }

    void listsDrives()
    {
        QFETCH(QList<FakeDevice>, devices);
        FakeDiskService service(bus_.address());
        service.setDevices(devices);
        QTEST(described(get_drives()), "expected");
    }

    void logsWhatItListsAndSkips()
    {
        FakeDiskService service(bus_.address());
        service.setDevices({{"gone", {}, "no %1", {}},
                            {"text", {}, {}, "a text"},
                            fake_drive("sr0").with("DeviceIsOpticalDisc", true),
                            fake_drive("empty").with("DeviceSize", 0ULL),
                            fake_drive("nosector").with("DeviceBlockSize", {}),
                            fake_partition("raw").with("IdType", {}),
                            fake_drive("sda"),
                            fake_partition("sda1")});
        static const QRegularExpression place("\\*\\*\\* devicePath: /.*/devices/(.*) \\*\\*\\*\n");
        QCOMPARE(log_of_get_drives().replace(place, "\\1: "), R"(get_drives()
gone: GetAll failed: no %1
text: not a drive or partition (skip)
sr0: optical disc (skip)
empty: invalid size (skip)
nosector: invalid sector size (skip)
raw: empty type (skip)
sda: device: /dev/sda
  model: Model sda
  serial: Serial sda
  sectors: 976562500
  sectorSize: 512
sda1: partition: /dev/sda1
  size: 1000000000
  comment: DATA / FAT32
1 drives found
)");
    }

    // Together they take longer than one may.
    void givesEachQuestionItsTime()
    {
        FakeDiskService service(bus_.address());
        QList<FakeDevice> devices;
        QList<QDBusObjectPath> paths;
        for (const char* name : {"sda", "sdb", "sdc", "sdd"}) {
            devices << FakeDevice{name, fake_drive(name).properties, {}, {}, 300};
            paths << QDBusObjectPath(QString("/org/freedesktop/UDisks/devices/") + name);
        }
        service.setDevices(devices);
        disk_service::PropertiesReader reader(paths, 700);
        for (qsizetype i = 0; i < paths.size(); ++i) {
            QVERIFY(!reader.next().error.isValid());
        }
        disk_service::PropertiesReader impatient(paths.first(1), 100);
        QVERIFY(impatient.next().error.isValid());
    }

    void findsTheServiceWhenItComesLate()
    {
        bus_.stop();
        QVERIFY(get_drives().empty()); // the bus went away
        QVERIFY(get_drives().empty()); // and there is none to connect to
        QVERIFY(bus_.start());
        const QString failure = "get_drives()\nEnumerateDevices failed: ";
        QVERIFY(log_of_get_drives().startsWith(failure + "The name org.freedesktop.UDisks was"));
        FakeDiskService service(bus_.address());
        service.setDevices({fake_drive("sda")});
        service.setEnumeration("no <b>%1", {});
        QCOMPARE(log_of_get_drives(), failure + "no <b>%1\n");
        service.setEnumeration({}, "/dev/sda");
        QVERIFY(log_of_get_drives().startsWith(failure + "Unexpected reply signature: "));
        QVERIFY(get_drives().empty());
        service.setEnumeration({}, {});
        QCOMPARE(described(get_drives()), drive_line("sda"));
    }
};

QTEST_GUILESS_MAIN(DrivesTest)
#include "drives_test.moc"
