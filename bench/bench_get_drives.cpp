// How long listing the drives takes beside the bus calls that it cannot do without, on a fake
// disk service in the same process. The arguments are the numbers of drives to measure.
#include "app/debug_log.h"
#include "storage/drives.h"
#include "tests/diskservice/private_bus.h"
#include "tests/storage/fake_disk_service.h"

#include <QDBusMessage>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>

namespace {

const QString kService = "org.freedesktop.UDisks";
const QString kRoot = "/org/freedesktop/UDisks";
constexpr int kRounds = 5;

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

// The median of several rounds in milliseconds; the work tells whether it was done.
double median_ms(const auto& work)
{
    QList<double> times;
    for (int round = 0; round < kRounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        if (!work()) {
            qFatal("bench_get_drives: not all drives were listed");
        }
        times << static_cast<double>(clock.nsecsElapsed()) / 1e6;
    }
    std::sort(times.begin(), times.end());
    return times[kRounds / 2];
}

void measure(unsigned driveCount, FakeDiskService& service, const QDBusConnection& bus)
{
    const QList<FakeDevice> list = devices(driveCount);
    service.setDevices(list);
    const double calls = median_ms([&] { return call_bus(bus, list); });
    const double drives = median_ms([&] { return get_drives().size() == driveCount; });
    std::printf("%6u %15.1f %15.1f %7.2f\n", driveCount, drives, calls, drives / calls);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    dbg_init(DBG_TYPE_STRING, 1);
    PrivateBus privateBus;
    if (!privateBus.startAsSystemBus()) {
        qFatal("bench_get_drives: dbus-daemon does not start");
    }
    FakeDiskService service(privateBus.address());
    const auto bus = QDBusConnection::connectToBus(privateBus.address(), "raw");
    std::printf("drives get_drives() ms    bus calls ms   ratio\n");
    for (const QString& count : QCoreApplication::arguments().mid(1)) {
        measure(count.toUInt(), service, bus);
    }
}
