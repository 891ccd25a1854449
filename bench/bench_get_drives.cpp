// How long listing the drives takes beside the bus calls that it cannot do without, on a fake
// disk service in the same process.
#include "storage/drives.h"
#include "tests/support/bus_test.h"

#include <QDBusMessage>

#include <algorithm>

namespace {

const QString kService = "org.freedesktop.UDisks";
const QString kRoot = "/org/freedesktop/UDisks";

QList<FakeDevice> devices(unsigned driveCount)
{
    QList<FakeDevice> list;
    for (unsigned drive = 0; drive < driveCount; ++drive) {
        const QByteArray name = "drive" + QByteArray::number(drive) + "_";
        list << fake_drive(name);
        for (const char* partition : {"1", "2", "3", "4"}) {
            list << fake_partition(name + partition);
        }
    }
    return list;
}

// The questions that get_drives() asks, each waiting for its answer before the next.
bool call_bus(const QDBusConnection& bus, const QList<FakeDevice>& list)
{
    const auto make = QDBusMessage::createMethodCall;
    QList<QDBusMessage> calls{make(kService, kRoot, kService, "EnumerateDevices")};
    for (const FakeDevice& device : list) {
        calls << make(kService, kRoot + "/devices/" + device.name,
                      "org.freedesktop.DBus.Properties", "GetAll");
        calls.last() << kService + ".Device";
    }
    return std::all_of(calls.begin(), calls.end(), [&](const QDBusMessage& call) {
        return bus.call(call).type() == QDBusMessage::ReplyMessage;
    });
}

} // namespace

class BenchGetDrives : public BusTest {
    Q_OBJECT

private slots:
    void lists_data()
    {
        QTest::addColumn<unsigned>("driveCount");
        QTest::addColumn<bool>("isBare");
        for (const unsigned count : {50U, 100U, 200U}) {
            QTest::addRow("%u drives", count) << count << false;
            QTest::addRow("%u drives, the bus calls alone", count) << count << true;
        }
    }

    void lists()
    {
        QFETCH(unsigned, driveCount);
        QFETCH(bool, isBare);
        const QList<FakeDevice> list = devices(driveCount);
        service_.setDevices(list);
        const auto bus = QDBusConnection::connectToBus(bus_.address(), "bare");
        QBENCHMARK
        {
            QVERIFY(isBare ? call_bus(bus, list) : get_drives().size() == driveCount);
        }
    }

private:
    FakeDiskService service_{bus_.address()};
};

QTEST_GUILESS_MAIN(BenchGetDrives)
#include "bench_get_drives.moc"
