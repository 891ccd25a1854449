#include "app/dbg_window.h"
#include "app/debug_log.h"
#include "tests/diskservice/private_bus.h"
#include "tests/storage/fake_disk_service.h"
#include "tests/tools/message_boxes.h"
#include "tools/mounter.h"

#include <QListWidget>
#include <QRegularExpression>
#include <QTest>

namespace {

FakeDevice fake_file_system(const char* name)
{
    FakeDevice device = fake_partition(name).with("IdUsage", "filesystem");
    device.mountPath = "/media/" + device.name;
    return device;
}

} // namespace

class MounterTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        dbg_init(DBG_TYPE_STRING, 1);
        QVERIFY(bus_.startAsSystemBus());
    }

    void listsFileSystems()
    {
        FakeDiskService service(bus_.address());
        const QStringList places{QStringLiteral("/m%1\u00fc"), "/mnt"};
        service.setDevices({fake_file_system("sdb1").with("IdLabel", {}),
                            FakeDevice{"sdc", {}, "gone %1", {}}, fake_drive("sdd"),
                            fake_file_system("sde").with("IdUsage", "raid"),
                            fake_file_system("sda10").with("DeviceMountPaths", places)});
        Mounter mounter(nullptr);
        QCOMPARE(state(mounter), "sda10: DATA (vfat) - /m%1\u00fc &refresh &umount &browse");
        mounter.findChild<QListWidget*>()->setCurrentRow(1);
        QCOMPARE(state(mounter), "sdb1: <no label> (vfat) - <not mounted> &refresh &mount");
        QCOMPARE(logged(), QStringLiteral(R"(get_filesystems()
*** devicePath: sdb1 ***
updateMountPath: devicePath: sdb1
device: sdb1
  type: vfat
  label: 
  mountPath: 
*** devicePath: sdc ***
GetAll failed: gone %1
*** devicePath: sdd ***
not a filesystem (skip)
*** devicePath: sde ***
not a filesystem (skip)
*** devicePath: sda10 ***
updateMountPath: devicePath: sda10
device: sda10
  type: vfat
  label: DATA
  mountPath: /m%1ü
2 filesystems found
)"));
        service.setEnumeration("no %1", {});
        press(mounter, "refresh");
        QCOMPARE(state(mounter), "none &refresh");
        QVERIFY(logged().endsWith("EnumerateDevices failed: no %1\n"));
    }

    void mountsAndUnmounts()
    {
        FakeDiskService service(bus_.address());
        FakeDevice busy = fake_file_system("sda1");
        busy.mountError = "busy %1";
        FakeDevice nowhere = fake_file_system("sdc1");
        nowhere.mountPath = "";
        service.setDevices({fake_file_system("sdb1"), busy, nowhere});
        Mounter mounter(nullptr);
        auto* list = mounter.findChild<QListWidget*>();
        MessageBoxes boxes;
        press(mounter, "mount");
        QVERIFY(logged().contains("\nbusy %1\n"));
        list->setCurrentRow(2);
        press(mounter, "mount");
        QVERIFY(logged().contains("\nempty mount path\n"));
        QCOMPARE(list->currentRow(), 2);
        list->setCurrentRow(1);
        press(mounter, "mount");
        QCOMPARE(state(mounter), "sdb1: DATA (vfat) - /media/sdb1 &refresh &umount &browse");
        press(mounter, "umount");
        QCOMPARE(state(mounter), "sdb1: DATA (vfat) - <not mounted> &refresh &mount");
        service.setDevices({busy.with("DeviceMountPaths", QStringList{"/x"})});
        press(mounter, "refresh"); // the list is too short for the row selected before
        press(mounter, "umount");
        QCOMPARE(state(mounter), "sda1: DATA (vfat) - /x &refresh &umount &browse");
        const QString failed = "Critical Mounter: mount failed";
        QCOMPARE(boxes.shown, QStringList({failed, failed, "Critical Mounter: umount failed"}));
    }

    void opensTheDebugWindowOnce()
    {
        Mounter mounter(nullptr);
        mounter.show();
        for (int i = 0; i < 2; ++i) {
            mounter.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&mounter));
            QTest::keyClick(&mounter, Qt::Key_D, Qt::ShiftModifier | Qt::AltModifier);
            QCOMPARE(mounter.findChildren<DbgWindow*>().size(), 1);
        }
    }

private:
    static void press(const Mounter& mounter, const char* button)
    {
        mounter.findChild<QPushButton*>(button)->click();
    }

    // The current row and the buttons that can be pressed.
    static QString state(const Mounter& mounter)
    {
        const auto* item = mounter.findChild<QListWidget*>()->currentItem();
        QString text = item ? item->text() : "none";
        for (const QPushButton* button : mounter.findChildren<QPushButton*>()) {
            text += button->isEnabled() ? " &" + button->objectName() : "";
        }
        return text;
    }

    // Without the places in the source and the directory of the devices.
    static QString logged()
    {
        static const QRegularExpression place(
            "FileSystems\\(\\d+\\): |/org/freedesktop/UDisks/devices/");
        return QString(dbg_string()).remove(place);
    }

    PrivateBus bus_;
};

QTEST_MAIN(MounterTest)
#include "mounter_test.moc"
