#include "app/display/display_helpers.h"
#include "tests/support/fake_disk_service.h"
#include "tests/support/private_bus.h"
#include "tools/selected_drive.h"
#include "tools/wizard.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>

class WizardTest : public QObject {
    Q_OBJECT

private slots:
    void leadsToTheEnd()
    {
        PrivateBus bus;
        QVERIFY(bus.startAsSystemBus());
        FakeDiskService service(bus.address());
        Wizard wizard(nullptr);
        wizard.show();
        QVERIFY(QTest::qWaitForWindowActive(&wizard));
        wizard.next();

        service.setDevices({fake_drive("none2"), fake_drive("none1").with("DriveModel", "<b>%1")});
        wizard.currentPage()->findChildren<QPushButton*>()[1]->click(); // Refresh List
        QVERIFY(wizard.button(QWizard::NextButton)->isEnabled());
        auto* list = wizard.currentPage()->findChild<QListWidget*>();
        QCOMPARE(list->currentItem()->text(),
                 "Device: /dev/none1\nModel Number: <b>%1\nSerial Number: Serial none1\n"
                 "Sectors: 976562500 (500000000000  bytes)\nSector Size: 512");
        list->setCurrentRow(1);
        wizard.next();
        QCOMPARE(sDrive.device(), std::string("/dev/none2"));
        wizard.back();
        list->setCurrentRow(0);
        wizard.next();

        QCOMPARE(sDrive.device(), std::string("/dev/none1"));
        QCOMPARE(wizard.currentPage()->findChild<QLabel*>("id")->text(), drive_label(sDrive));
        wizard.next();
        QCOMPARE(wizard.currentPage()->findChild<QLabel*>()->text(), drive_label(sDrive));
        wizard.next();
        // Enter ends the wizard and does not restart the computer.
        QCOMPARE(QApplication::focusWidget(), wizard.button(QWizard::FinishButton));
    }
};

QTEST_MAIN(WizardTest)
#include "wizard_test.moc"
