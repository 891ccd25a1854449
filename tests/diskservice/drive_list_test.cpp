#include "tests/support/private_bus.h"

#include <QDBusMessage>
#include <QDBusObjectPath>

#include <sys/stat.h>
#include <sys/sysmacros.h>

// Which of a computer's drives are listed, and which are left out with which reason.

namespace {

const QString kName = "org.freedesktop.UDisks";
const QString kPath = "/org/freedesktop/UDisks";

const QByteArray kDate = "2026-11-23-15-10-00-00";
const QByteArray kStartedFromDisc = "started_with vantrelle.medium=" + kDate + ";";
const QByteArray kStartedFromFat = "started_with vantrelle.medium=ABCD-0123;";

// A drive with one partition; all have a made-up size.
QByteArray drive(const QByteArray& folder, const QByteArray& attributes = {})
{
    const QByteArray name = folder.mid(folder.lastIndexOf('/') + 1);
    const QByteArray partition = name + (name.startsWith("mmc") ? "p1" : "1");
    return "device " + folder + " 8192 " + attributes + "; device " + folder + '/' + partition +
           " 8000 partition=1;";
}

// Two ways over the same transport, and what the kernel shows of a drive at the end of each.
const QByteArray kSas = "pci/host0/port-0:0/end_device-0:0/target0:0:0/";
const QByteArray kFibre = "pci/host1/rport-1:0-0/target1:0:0/";
const QByteArray kTwin = " 8192 device/wwid=naa.5000c500abc4 device/serial=S1 device/model=M1";
const QByteArray kNvme = "device/serial=S1 device/model=M1;";

const QByteArray kWhy = ": left out: the running system ";
const QByteArray kFrom = kWhy + "was started from it (vantrelle.medium=";

} // namespace

class DriveListTest : public QObject {
    Q_OBJECT

    PrivateBus bus_;

    static bool canMakeNodes()
    {
        const QTemporaryDir folder;
        return ::mknod(qPrintable(folder.filePath("node")), S_IFBLK, makedev(7, 200)) == 0;
    }

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

        const QByteArray image = "disc_image sda " + kDate + ';';
        const QByteArray usb = drive("pci/usb1/sda");
        row("an optical disc is the medium",
            kStartedFromDisc + "device pci/ata1/sr0 8192 " + "removable=1; disc_image sr0 " + kDate,
            "", "/dev/sr0" + kFrom);
        row("so is a USB stick that the image was written to", kStartedFromDisc + usb + image, "",
            "/dev/sda" + kFrom + kDate);
        row("and a removable drive", kStartedFromDisc + drive("pci/x/sda", "removable=1") + image,
            "", "/dev/sda" + kFrom);
        row("and a memory card",
            kStartedFromDisc + drive("pci/mmc0/mmcblk0", "device/type=SD") + "disc_image mmcblk0 " +
                kDate,
            "", "/dev/mmcblk0" + kFrom);
        row("and one with older contents, too",
            kStartedFromDisc + "device pci/usb1/sda 8192;" + "mke2fs -q dev/sda;" + image, "",
            "/dev/sda" + kFrom);
        row("a stick with another image is not",
            kStartedFromDisc + usb + "disc_image sda " + "2026-11-23-15-10-00-01", "sda sda1");
        row("a drive of the computer with a copy is not",
            kStartedFromDisc + drive("pci/x/sda") + image, "sda sda1");
        row("nor one with a copy in a partition",
            kStartedFromDisc + drive("pci/x/sda") + "disc_image sda1 " + kDate, "sda sda1");
        row("nor a USB drive with a copy in a partition",
            kStartedFromDisc + usb + "disc_image sda1 " + kDate, "sda sda1");
        row("without the word there is no medium",
            "started_with " + kDate + ';' + usb + image + "fat sda1 0 VTOYEFI", "sda sda1");

        row("a stick with the image's files is the medium",
            kStartedFromFat + usb + "fat sda1 abcd0123", "", "/dev/sda" + kFrom + "ABCD-0123)");
        row("so is one without partitions",
            kStartedFromFat + "device pci/usb1/sda 8192;" + "fat sda abcd0123", "",
            "/dev/sda" + kFrom);
        row("a drive of the computer with such a partition is not",
            kStartedFromFat + drive("pci/x/sda") + "fat sda1 abcd0123", "sda sda1");
        row("a stick of several images may be the medium",
            kStartedFromDisc + usb + "fat sda1 1 VTOYEFI", "",
            "/dev/sda: left out: it starts one of several images");
        row("also when the boot loader could not tell",
            "started_with vantrelle.medium=;" + usb + "fat sda1 1 VTOYEFI", "",
            "vantrelle.medium: the boot loader could not tell");
        row("a drive of the computer with that label is not",
            kStartedFromDisc + drive("pci/x/sda") + "fat sda1 1 VTOYEFI", "sda sda1");

        row("the medium is not listed when it does not answer",
            kStartedFromDisc + usb + "hangs sda", "", "/dev/sda: left out: does not answer yet");
        row("udev may know it before",
            kStartedFromDisc +
                drive("pci/usb1/sda", "uevent='ID_FS_TYPE=iso9660\\nID_FS_UUID=" + kDate + "'") +
                "hangs sda",
            "", "/dev/sda" + kFrom);
        row("udev may know its partition",
            kStartedFromFat + "device pci/usb1/sda 8192;" +
                "device pci/usb1/sda/sda1 8000 partition=1 'uevent=ID_FS_UUID=ABCD-0123\\n';" +
                "hangs sda",
            "", "/dev/sda" + kFrom);
        row("a drive that is only slow is listed",
            kStartedFromDisc + usb + image + drive("pci/usb2/sdb") + "hangs sdb", "sdb sdb1",
            "/dev/sdb: does not answer: listed without its contents");
        row("so is a slow one of the computer", kStartedFromDisc + drive("pci/x/sda") + "hangs sda",
            "sda sda1", "/dev/sda: does not answer: listed");

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

        const auto pair = [&row](const char* name, const QByteArray& first,
                                 const QByteArray& second, const char* listed) {
            const bool isOne = QByteArray(listed) == "sda";
            row(name, "device " + first + ";device " + second, listed,
                isOne ? "/dev/sdb: left out: the same drive as /dev/sda, over another way" : "");
        };
        pair("two ways to a SAS drive", kSas + "sda" + kTwin, kSas + "sdb" + kTwin, "sda");
        pair("two ways over Fibre Channel", kFibre + "sda" + kTwin, kFibre + "sdb" + kTwin, "sda");
        pair("a SAS drive of another name", kSas + "sda" + kTwin,
             kSas + "sdb" + QByteArray(kTwin).replace("abc4", "abc8"), "sda sdb");
        pair("a SAS drive of another serial", kSas + "sda" + kTwin,
             kSas + "sdb" + QByteArray(kTwin).replace("S1", "S2"), "sda sdb");
        pair("a SAS drive of another model", kSas + "sda" + kTwin,
             kSas + "sdb" + QByteArray(kTwin).replace("M1", "M2"), "sda sdb");
        pair("a SAS drive of another size", kSas + "sda" + kTwin,
             kSas + "sdb" + QByteArray(kTwin).replace("8192", "8193"), "sda sdb");
        pair("SAS drives without a serial", kSas + "sda" + QByteArray(kTwin).replace("S1", ""),
             kSas + "sdb" + QByteArray(kTwin).replace("S1", ""), "sda sdb");
        pair("SAS drives whose name was never filled in",
             kSas + "sda" + QByteArray(kTwin).replace("c500abc4", "00000000"),
             kSas + "sdb" + QByteArray(kTwin).replace("c500abc4", "00000000"), "sda sdb");
        pair("SAS drives with a name of their texts",
             kSas + "sda" + QByteArray(kTwin).replace("naa", "t10"),
             kSas + "sdb" + QByteArray(kTwin).replace("naa", "t10"), "sda sdb");
        pair("SATA drives behind a SAS controller", kSas + "sda" + kTwin + " device/vendor=ATA",
             kSas + "sdb" + kTwin + " device/vendor=ATA", "sda sdb");
        pair("cheap sticks share all", "pci/usb1/sda" + kTwin, "pci/usb2/sdb" + kTwin, "sda sdb");
        row("two ways to an NVMe drive",
            "device pci/nvme0/nvme0n1 99 wwid=eui.0025 " + kNvme +
                "device pci/nvme1/nvme1n1 99 wwid=eui.0025 " + kNvme,
            "nvme0n1", "/dev/nvme1n1: left out: the same drive as /dev/nvme0n1");
        row("two namespaces of an NVMe drive",
            "device pci/nvme0/nvme0n1 99 wwid=eui.0025 " + kNvme +
                "device pci/nvme0/nvme0n2 99 wwid=eui.0026 " + kNvme,
            "nvme0n1 nvme0n2");
        row("two ways to the system's drive",
            "device " + kSas + "sda" + kTwin + ";device " + kSas + "sdb" + kTwin +
                "; mounted 8:1 /boot",
            "", "/dev/sda" + kWhy + "came from it");

        row("a regular file under a drive's name", drive("x/sda") + "chmod -t dev/sda", "",
            "/dev/sda: left out: the file under its name is no block device");
        row("a regular file under one of a drive's two names",
            "device " + kSas + "sda" + kTwin + "; chmod -t dev/sda; device " + kSas + "sdb" + kTwin,
            "sdb", "/dev/sda: left out: the file under its name is no block device");
        if (canMakeNodes()) {
            row("another device under a drive's name",
                drive("x/sda") + "rm dev/sda; mknod dev/sda b 7 200", "",
                "/dev/sda: left out: another device is under its name");
        }
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
