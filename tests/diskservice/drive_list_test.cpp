#include "tests/support/private_bus.h"

#include <QDBusMessage>
#include <QDBusObjectPath>

// Which of a computer's drives are listed, and which are left out with which reason.

namespace {

const QString kName = "org.freedesktop.UDisks";
const QString kPath = "/org/freedesktop/UDisks";

// A drive with one partition; all have a made-up size.
QByteArray drive(const QByteArray& folder, const QByteArray& attributes = {})
{
    const QByteArray name = folder.mid(folder.lastIndexOf('/') + 1);
    const QByteArray partition = name + (name.startsWith("mmc") ? "p1" : "1");
    return "device " + folder + " 8192 " + attributes + "; device " + folder + '/' + partition +
           " 8000 partition=1;";
}

const QByteArray kWhy = ": left out: the running system ";

} // namespace

class DriveListTest : public QObject {
    Q_OBJECT

    PrivateBus bus_;

private slots:
    void initTestCase()
    {
        qputenv("PATH", qgetenv("PATH") + ":/usr/sbin:/sbin");
        QVERIFY(bus_.start());
    }

    void drives_data()
    {
        QTest::addColumn<QByteArray>("computer");
        QTest::addColumn<QString>("listed");
        QTest::addColumn<QByteArray>("said");
        const auto row = [](const char* name, const QByteArray& computer, const char* listed,
                            const QByteArray& said = {}) {
            QTest::newRow(name) << computer << listed << said;
        };

        row("the drive of / is left out", drive("x/sda") + "mounted 8:1 /", "",
            "/dev/sda" + kWhy + "came from it (/");
        row("the drive of /usr is left out", drive("x/sda") + "mounted 8:1 /usr", "",
            "/dev/sda" + kWhy + "came from it (/usr");
        row("the drive of /boot is left out",
            drive("x/sda") + drive("x/sdb") + "mounted 8:1 /; mounted 8:3 /boot", "",
            "/dev/sdb" + kWhy + "came from it (/boot");
        row("the drive of /boot/efi is left out",
            drive("x/sda") + drive("x/sdb") + "mounted 8:1 /boot; mounted 8:3 /boot/efi", "",
            "/dev/sdb" + kWhy + "came from it (/boot/efi");
        row("a drive that is mounted otherwise is not", drive("x/sda") + "mounted 8:1 /home",
            "sda sda1");
    }
    void drives()
    {
        QFETCH(QByteArray, computer);
        QFETCH(QByteArray, said);
        const QTemporaryDir root;
        const QString script = QFINDTESTDATA("made-up-drives");
        QCOMPARE(QProcess::execute(script, {root.path(), computer}), 0);
        QDBusConnection connection = QDBusConnection::connectToBus(bus_.address(), "drives");
        QTRY_VERIFY(!connection.interface()->isServiceRegistered(kName));
        ServiceProcess service;
        service.start(bus_, BINARIES "/diskservice", {"--root", root.path()});
        QVERIFY(ServiceProcess::waitForName(connection, kName));
        const auto call = QDBusMessage::createMethodCall(kName, kPath, kName, "EnumerateDevices");
        const QVariant devices = connection.call(call).arguments().value(0);
        QStringList names;
        for (const auto& path : qdbus_cast<QList<QDBusObjectPath>>(devices)) {
            names += path.path().section('/', -1);
        }
        QTEST(names.join(' '), "listed");
        QVERIFY2(said.isEmpty() || service.says("diskservice: " + said), service.said());
    }
};

QTEST_GUILESS_MAIN(DriveListTest)
#include "drive_list_test.moc"
