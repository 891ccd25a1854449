#include "diskservice/source/missing_drives.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

// Attributes as the kernel's sources describe them; none of these was emulated.
class MissingDrivesTest : public QObject {
    Q_OBJECT

private slots:
    void sentence_data()
    {
        QTest::addColumn<QString>("files"); // "attribute=value", separated by blanks
        QTest::addColumn<QString>("start"); // of the one sentence; empty: none
        const auto row = [](const char* name, const QString& files, const QString& start) {
            QTest::newRow(name) << files << start;
        };
        const QString pci = "bus/pci/devices/0000:00:17.0/";
        const QString chip = pci + "vendor=0x8086 " + pci + "device=0x282a " + pci + "class=";
        const QString said = "0000:00:17.0: storage controller 8086:282a ";
        row("no driver", chip + "0x010700", said + "has no driver");
        row("SD host without driver", chip + "0x080501", said + "has no driver");
        row("RAID without driver", chip + "0x010400", said + "is in a RAID mode");
        row("with a driver", chip + "0x010400 " + pci + "driver/x=", "");
        row("no storage", chip + "0x020000", "");
        row("remapped NVMe", chip + "0x010400 " + pci + "driver/x= " + pci + "remapped_nvme=1",
            said + "hides NVMe");
        row("USB storage", "bus/usb/devices/1-1:1.0/bInterfaceClass=08", "usb 1-1:1.0: USB");
        row("offline", "block/sda/device/state=offline block/sda/size=9",
            "/dev/sda: does not answer (offline)");
        row("metadata", "block/nvme0n1/metadata_bytes=8 block/nvme0n1/size=0",
            "/dev/nvme0n1: its sectors carry extra bytes");
        row("size zero", "block/sda/size=0 block/sda/device/state=running", "/dev/sda: has a size");
        row("no card", "block/sda/size=0 block/sda/removable=1", "");
        row("write-protected", "block/sda/size=9 block/sda/ro=1", "/dev/sda: is write-protected");
        row("a good drive", "block/nvme0n1/size=9 block/nvme0n1/device/state=live", "");
    }
    void sentence()
    {
        QFETCH(QString, files);
        QFETCH(QString, start);
        const QTemporaryDir root;
        for (const QString& text : files.split(' ')) {
            QFile file(root.filePath("sys/" + text.section('=', 0, 0)));
            QVERIFY(QDir().mkpath(QFileInfo(file).path()) && file.open(QIODevice::WriteOnly));
            file.write(text.section('=', 1).toUtf8() + '\n');
        }
        const std::vector<std::string> problems = missing_drives(root.path().toStdString());
        QCOMPARE(problems.size(), start.isEmpty() ? 0U : 1U);
        QVERIFY(problems.empty() || problems.front().starts_with(start.toStdString()));
    }
};

QTEST_GUILESS_MAIN(MissingDrivesTest)
#include "missing_drives_test.moc"
