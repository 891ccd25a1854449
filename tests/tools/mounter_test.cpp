#include "tests/support/bus_test.h"
#include "tests/support/message_boxes.h"
#include "tools/mounter.h"

#include <QFileDialog>
#include <QListWidget>

class MounterTest : public BusTest {
    Q_OBJECT

private slots:
    void listsMountsAndUnmounts()
    {
        FakeDiskService service(bus_.address());
        FakeDevice partition = fake_partition("sdb").with("IdUsage", "filesystem");
        partition.mountPath = "/m%1";
        FakeDevice busy = partition.with("DeviceMountPaths", QStringList{"/m\u00fc", "/mnt"});
        busy.name = "sda";
        busy.mountError = "busy %1";
        service.setDevices({partition.with("IdLabel", {}), FakeDevice{"sdc", {}, "gone %1", {}},
                            fake_drive("sdd"), busy});
        MessageBoxes boxes;
        Mounter dialog(nullptr);
        QCOMPARE(press(dialog, "umount"), "sda: DATA (vfat) - /m\u00fc &refresh &umount &browse");
        dialog.findChild<QListWidget*>()->setCurrentRow(1);
        QCOMPARE(press(dialog, "mount"), "sdb: <no label> (vfat) - /m%1 &refresh &umount &browse");
        QCOMPARE(press(dialog, "umount"), "sdb: <no label> (vfat) - <not mounted> &refresh &mount");
        service.setDevices({busy.with("DeviceMountPaths", {})});
        press(dialog, "refresh"); // the list is too short for the row selected before
        QCOMPARE(press(dialog, "mount"), "sda: DATA (vfat) - <not mounted> &refresh &mount");
        QCOMPARE(boxes.shown, QStringList({"umount failed", "mount failed"}));
        service.setEnumeration("no %1", {});
        QCOMPARE(press(dialog, "refresh"), "none &refresh");
        QCOMPARE(dialog.findChild<QPushButton*>("umount")->text(), "&Umount");
        dialog.show();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTest::keyClick(&dialog, Qt::Key_D, Qt::AltModifier | Qt::ShiftModifier);
        QVERIFY(dialog.findChild<QWidget*>("DbgWindow"));
    }

    void browsesWhereItIsMounted()
    {
        FakeDiskService service(bus_.address());
        const QTemporaryDir mounted;
        service.setDevices({fake_partition("sdb")
                                .with("IdUsage", "filesystem")
                                .with("DeviceMountPaths", QStringList{mounted.path()})});
        const Mounter mounter(nullptr);
        QString shown;
        QTimer timer;
        timer.callOnTimeout([&] {
            if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
                shown = dialog->directory().path();
                dialog->reject();
            }
        });
        timer.start(5);
        mounter.findChild<QPushButton*>("browse")->click();
        QCOMPARE(shown, mounted.path());
    }

private:
    // Then gives the current row and the buttons that can be pressed.
    static QString press(const Mounter& mounter, const char* pressed)
    {
        mounter.findChild<QPushButton*>(pressed)->click();
        const auto* item = mounter.findChild<QListWidget*>()->currentItem();
        QString text = item ? item->text() : "none";
        for (const QPushButton* button : mounter.findChildren<QPushButton*>()) {
            text += button->isEnabled() ? " &" + button->objectName() : "";
        }
        return text;
    }
};

QTEST_MAIN(MounterTest)
#include "mounter_test.moc"
