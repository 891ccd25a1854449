#include "app/display_helpers.h"
#include "tests/diskservice/private_bus.h"
#include "tests/storage/fake_disk_service.h"
#include "tools/selected_drive.h"
#include "tools/viewer.h"
#include "tools/wizard.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTest>

class WizardTest : public QObject {
    Q_OBJECT

private slots:
    void leadsToTheEnd()
    {
        PrivateBus bus;
        QVERIFY(bus.startAsSystemBus());
        FakeDiskService service(bus.address());
        Wizard wizard(nullptr);
        QCOMPARE(wizard.options(), QWizard::NoBackButtonOnStartPage | QWizard::NoCancelButton);
        wizard.show();
        QVERIFY(QTest::qWaitForWindowActive(&wizard));
        QCOMPARE(wizard.currentPage()->title(), "Welcome to VantrellePlus");
        wizard.next();

        QCOMPARE(wizard.currentPage()->title(), "Select Drive");
        const auto buttons = wizard.currentPage()->findChildren<QPushButton*>();
        auto* view = buttons[0];
        auto* refresh = buttons[1];
        QCOMPARE(refresh->text(), "&Refresh List");
        auto* list = wizard.currentPage()->findChild<QListWidget*>();
        const auto* next = wizard.button(QWizard::NextButton);
        QVERIFY(!view->isEnabled() && !next->isEnabled());
        const FakeDevice hostile = fake_drive("none1")
                                       .with("DeviceSize", 512'110'190'592ULL)
                                       .with("DriveModel", QStringLiteral("<b>%1\u00fc"));
        service.setDevices({fake_drive("none2"), hostile});
        refresh->click();
        QVERIFY(view->isEnabled() && next->isEnabled() && list->hasFocus());
        QCOMPARE(list->currentItem()->text(),
                 "Device: /dev/none1\nModel Number: <b>%1\u00fc\nSerial Number: Serial none1\n"
                 "Sectors: 1000215216 (512110190592  bytes)\nSector Size: 512");
        list->setCurrentRow(-1);
        wizard.next();
        QCOMPARE(wizard.currentId(), 1);
        list->setCurrentRow(1);
        view->click();
        view->click();
        QCOMPARE(wizard.currentPage()->findChildren<Viewer*>().size(), 2);
        QCOMPARE(sDrive.device(), std::string());
        wizard.next();

        QCOMPARE(sDrive.device(), std::string("/dev/none2"));
        wizard.back();
        list->setCurrentRow(0);
        QCOMPARE(sDrive.device(), std::string("/dev/none2"));
        wizard.next();
        QCOMPARE(wizard.currentPage()->title(), "Wipe Drive");
        QCOMPARE(wizard.currentPage()->findChild<QLabel*>("id")->text(), drive_label(sDrive));
        QCOMPARE(QApplication::focusWidget()->objectName(), "pattern");
        QVERIFY(wizard.findChild<QPushButton*>("wipe")->isDefault());
        wizard.next();
        QCOMPARE(sDrive.device(), std::string("/dev/none1"));
        QCOMPARE(wizard.currentPage()->title(), "Format Drive");
        QCOMPARE(wizard.currentPage()->findChild<QLabel*>()->text(), drive_label(sDrive));
        wizard.next();

        QCOMPARE(wizard.currentPage()->title(), "All Done");
        // Enter ends the wizard and does not restart the computer.
        QCOMPARE(QApplication::focusWidget(), wizard.button(QWizard::FinishButton));
    }
};

QTEST_MAIN(WizardTest)
#include "wizard_test.moc"
