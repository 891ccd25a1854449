// How long listing the drives takes beside the bus calls that it cannot do without, on a
// fake disk service in the same process. Run it without arguments, or with the numbers of
// drives to measure.
#include "app/debug_log.h"
#include "storage/drives.h"
#include "tests/diskservice/private_bus.h"
#include "tests/storage/fake_disk_service.h"

#include <QDBusMessage>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>

namespace {

constexpr int kPartitionsPerDrive = 4;
constexpr int kRounds = 5;

QList<FakeDevice> devices(int driveCount)
{
    QList<FakeDevice> list;
    for (int drive = 0; drive < driveCount; ++drive) {
        const QByteArray name = "drive" + QByteArray::number(drive) + "_";
        list << fake_drive(name.constData());
        for (int partition = 1; partition <= kPartitionsPerDrive; ++partition) {
            list << fake_partition((name + QByteArray::number(partition)).constData());
        }
    }
    return list;
}

// The same blocking calls as get_drives() makes, with their answers dropped.
bool call_bus(const QDBusConnection& bus, const QList<FakeDevice>& list)
{
    const QString service = QStringLiteral("org.freedesktop.UDisks");
    const QString root = QStringLiteral("/org/freedesktop/UDisks");
    bool isAnswered = bus.call(QDBusMessage::createMethodCall(service, root, service,
                                                              QStringLiteral("EnumerateDevices")))
                          .type() == QDBusMessage::ReplyMessage;
    for (const FakeDevice& device : list) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            service, root + QStringLiteral("/devices/") + device.name,
            QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("GetAll"));
        message << QStringLiteral("org.freedesktop.UDisks.Device");
        isAnswered = bus.call(message).type() == QDBusMessage::ReplyMessage && isAnswered;
    }
    return isAnswered;
}

// The median of several rounds in milliseconds; negative when the work failed once.
double median_ms(const std::function<bool()>& work)
{
    QList<double> times;
    for (int round = 0; round < kRounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        if (!work()) {
            return -1;
        }
        times << static_cast<double>(clock.nsecsElapsed()) / 1e6;
    }
    std::sort(times.begin(), times.end());
    return times[kRounds / 2];
}

bool measure(int driveCount, FakeDiskService& service, const QDBusConnection& bus)
{
    const QList<FakeDevice> list = devices(driveCount);
    service.setDevices(list);
    const double calls = median_ms([&] { return call_bus(bus, list); });
    const double drives = median_ms([&] {
        const std::vector<Drive> found = get_drives();
        return found.size() == static_cast<std::size_t>(driveCount) &&
               found.back().partitions().size() >= kPartitionsPerDrive;
    });
    std::printf("%6d %10d %15.1f %15.1f %7.2f\n", driveCount, driveCount * kPartitionsPerDrive,
                drives, calls, drives / calls);
    return calls >= 0 && drives >= 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    dbg_init(DBG_TYPE_STRING, 1);
    PrivateBus privateBus;
    if (!privateBus.startAsSystemBus()) {
        std::fprintf(stderr, "bench_get_drives: dbus-daemon does not start\n");
        return 1;
    }
    FakeDiskService service(privateBus.address());
    const auto bus = QDBusConnection::connectToBus(privateBus.address(), QStringLiteral("raw"));
    QStringList counts = QCoreApplication::arguments().mid(1);
    if (counts.isEmpty()) {
        counts = {QStringLiteral("50"), QStringLiteral("100"), QStringLiteral("200")};
    }
    std::printf("drives partitions get_drives() ms bus calls ms   ratio\n");
    bool isMeasured = true;
    for (const QString& count : std::as_const(counts)) {
        isMeasured = measure(count.toInt(), service, bus) && isMeasured;
    }
    return isMeasured ? 0 : 1;
}
