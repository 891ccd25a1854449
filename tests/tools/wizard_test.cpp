#include "app/base/program_config.h"
#include "app/display/display_helpers.h"
#include "tests/support/bus_test.h"
#include "tests/support/message_boxes.h"
#include "tests/support/script_and_log.h"
#include "tools/selected_drive.h"
#include "tools/viewer.h"
#include "tools/wizard.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>

class WizardTest : public BusTest {
    Q_OBJECT

private slots:
    void leadsToTheEnd()
    {
        Wizard wizard(nullptr);
        wizard.show();
        QVERIFY(QTest::qWaitForWindowActive(&wizard));
        QVERIFY(!wizard.button(QWizard::CancelButton)->isVisible());
        wizard.next();

        service_.setDevices({fake_drive("none2"), fake_drive("none1").with("DriveModel", "<b>%1")});
        wizard.currentPage()->findChildren<QPushButton*>()[0]->click(); // Refresh List
        QVERIFY(wizard.button(QWizard::NextButton)->isEnabled());
        for (const char* text : {"&Refresh List", "&View Sectors"}) { // Tab goes downwards
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QCOMPARE(qobject_cast<QPushButton*>(QApplication::focusWidget())->text(), text);
        }
        auto* list = wizard.currentPage()->findChild<QListWidget*>();
        QCOMPARE(list->currentItem()->text(),
                 "Device: /dev/none1\nModel Number: <b>%1\nSerial Number: Serial none1\n"
                 "Sectors: 976562500 (500000000000  bytes)\nSector Size: 512");
        list->setCurrentRow(1);
        wizard.currentPage()->findChildren<QPushButton*>()[1]->click(); // View Sectors
        QCOMPARE(wizard.findChild<Viewer*>()->windowTitle(), "Model none2 / Serial none2");
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

    void keepsItsOwnDrive()
    {
        service_.setDevices({fake_drive("none1"), fake_drive("none2")});
        Wizard first(nullptr);
        Wizard second(nullptr);
        for (Wizard* wizard : {&first, &second}) {
            wizard->show();
            wizard->next();
            wizard->currentPage()->findChild<QListWidget*>()->setCurrentRow(wizard == &second);
            wizard->next();
        }
        QCOMPARE(sDrive.device(), "/dev/none2");
        first.next();
        const QString label = first.currentPage()->findChild<QLabel*>()->text();
        QVERIFY(label.contains("Model none1"));

        const QTemporaryDir library;
        theProgramConfig().setLib(library.path().toStdString());
        write_script(library.filePath("format"), "echo $1 >${0%/*}/device");
        const MessageBoxes boxes;
        first.currentPage()->findChild<QPushButton*>()->click();
        QFile device(library.filePath("device"));
        QVERIFY(device.open(QIODevice::ReadOnly));
        QCOMPARE(device.readAll(), "/dev/none1\n");
    }

private:
    FakeDiskService service_{bus_.address()};
};

QTEST_MAIN(WizardTest)
#include "wizard_test.moc"
