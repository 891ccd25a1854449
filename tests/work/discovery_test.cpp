#include "tests/support/appliance.h"
#include "work/worker_disabled.h"

#include <QHeaderView>

// What is attached from which poll on, counted from 0.
using Attached = QMap<int, QList<FakeDevice>>;

class DiscoveryTest : public BusTest {
    Q_OBJECT

private slots:
    void waitsUntilTheListIsStable_data()
    {
        QTest::addColumn<Attached>("attached");
        QTest::addColumn<int>("ticks"); // with "Initializing" shown; the next one ends

        const QList<FakeDevice> one{fake_drive("sda")};
        const QList<FakeDevice> other{fake_drive("sdb")};
        const QList<FakeDevice> two = one + other;
        QTest::newRow("drives at once") << Attached{{0, two}} << 11;
        QTest::newRow("no drives at all") << Attached{{0, {}}} << 31;
        QTest::newRow("a second drive in between") << Attached{{0, one}, {7, two}} << 18;
        QTest::newRow("a second drive at the end") << Attached{{0, one}, {11, two}} << 22;
        QTest::newRow("a drive goes, none is left") << Attached{{0, one}, {4, {}}} << 15;
        QTest::newRow("another drive instead") << Attached{{0, one}, {8, other}} << 11;
        QTest::newRow("a drive comes at the very end") << Attached{{31, one}} << 31;
        QTest::newRow("always changes") << Attached{{0, one}, {9, two}, {18, one}, {27, two}} << 31;
    }

    void waitsUntilTheListIsStable()
    {
        QFETCH(Attached, attached);
        QFETCH(int, ticks);
        Appliance appliance(attached.value(0));
        appliance.open();
        for (int shown = 1; shown <= ticks; ++shown) {
            const QString dots((shown - 1) % 4, '.');
            QCOMPARE(appliance.information(), "green: Initializing" + dots + " [stop]");
            QCOMPARE(appliance.service.enumerations(), shown);
            if (attached.contains(shown)) {
                appliance.service.setDevices(attached.value(shown));
            }
            appliance.tick("initTimeout");
        }
        const QList<FakeDevice> drives = attached.last();
        QCOMPARE(appliance.information(),
                 drives.isEmpty()
                     ? "red: No drives found [restart]"
                     : "red: VantrellePlus will begin erasing in 10 seconds... [stop]");
        const auto* tree = appliance.find<QTreeWidget>("drivesTreeWidget");
        QCOMPARE(tree->topLevelItemCount(), drives.size());
        for (int row = 0; row < drives.size(); ++row) {
            QVERIFY(tree->topLevelItem(row)->text(0).endsWith("Model " + drives[row].name));
        }
    }

    void showsDrivesAsRows()
    {
        Appliance appliance({fake_drive("sdb").with("DriveModel", "<b>%1%2"),
                             fake_partition("sda2").with("IdType", "ext4"), fake_drive("sda")});
        appliance.open();
        const auto* tree = appliance.find<QTreeWidget>("drivesTreeWidget");
        QCOMPARE(tree->topLevelItemCount(), 2);
        QCOMPARE(tree->topLevelItem(0)->text(0), "500GB / Model sda");
        QCOMPARE(tree->topLevelItem(0)->child(0)->text(0), "1GB / DATA / EXT4");
        QCOMPARE(tree->topLevelItem(1)->text(0), "500GB / <b>%1%2");
        QCOMPARE(appliance.statuses(), "INIT 100 | INIT 100");
        QCOMPARE(tree->header()->visualIndex(1), 0); // the bars stand at the left
        QCOMPARE(WorkWidget::WorkerDisabled({}, nullptr).status(), Process::Done);
    }

    void offersRestartWithoutDrives()
    {
        Appliance appliance({});
        appliance.open();
        QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
        appliance.clickStop();
        QCOMPARE(appliance.boxes, QStringList{"WorkWidget failure: No drives found. Some slow "
                                              "drives may take longer to load. Click [Restart "
                                              "Initialization] to try again."});
        auto* restart = appliance.find<QPushButton>("restartInitializationButton");
        QTRY_VERIFY(restart->hasFocus());
        appliance.service.setDevices({fake_drive("sda")});
        restart->click();
        QCOMPARE(appliance.information(), "green: Initializing [stop]");
    }

    void countsDown()
    {
        Appliance appliance({fake_drive("sda")});
        appliance.open();
        appliance.clickStop();
        for (int seconds = 10; seconds >= 1; --seconds) {
            QCOMPARE(appliance.information(),
                     QString("red: VantrellePlus will begin erasing in %1 second%2... [stop]")
                         .arg(QString::number(seconds), seconds == 1 ? "" : "s"));
            QCOMPARE(appliance.statuses(), "%p% 0");
            QCOMPARE(appliance.calls(), QStringList());
            appliance.tick("countdownTimeout");
        }
        QCOMPARE(appliance.information(), "green: Erasing drives... [stop]");
    }

    void stopsTheCountdown()
    {
        Appliance appliance({fake_drive("sda")});
        appliance.open();
        for (int click = 0; click < 3; ++click) { // the last one on a hidden button
            appliance.clickStop();
        }
        QTest::qWait(1100); // no tick comes any more
        QCOMPARE(appliance.information(), "blue: Stopped. [restart]");
        appliance.find<QPushButton>("restartInitializationButton")->click();
        QCOMPARE(appliance.information(), "green: Initializing [stop]");
        QCOMPARE(appliance.statuses(), "INIT 100");
    }
};

QTEST_MAIN(DiscoveryTest)
#include "discovery_test.moc"
