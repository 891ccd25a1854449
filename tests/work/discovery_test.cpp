#include "app/debug_log.h"
#include "tests/storage/private_bus.h"
#include "tests/work/appliance.h"
#include "work/work_widget.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHeaderView>
#include <QTest>

namespace {

const char* const kNoDrivesBox = "WorkWidget failure: No drives found. Some slow drives may take "
                                 "longer to load. Click [Restart Initialization] to try again.";

QString countdown_text(const char* time)
{
    return QStringLiteral("red: VantrellePlus will begin erasing in %1...")
        .arg(QLatin1String(time));
}

// What is attached from which poll on, counted from 0: the drives' names.
using Attached = QMap<int, QStringList>;

QList<FakeDevice> drives_named(const QStringList& names)
{
    QList<FakeDevice> devices;
    for (const QString& name : names)
        devices << fake_drive(qPrintable(name));
    return devices;
}

} // namespace

class DiscoveryTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void waitsUntilTheListIsStable_data();
    void waitsUntilTheListIsStable();
    void showsDrivesAsRows();
    void rebuildsRowsOnlyWhenTheListChanges();
    void offersRestartWithoutDrives();
    void stopsTheCountdown();
    void countsDown();
    void ticksOnceASecond();

private:
    PrivateBus bus_;
};

void DiscoveryTest::initTestCase()
{
    dbg_init(DBG_TYPE_STRING, 1);
    QVERIFY(bus_.start());
}

void DiscoveryTest::waitsUntilTheListIsStable_data()
{
    QTest::addColumn<Attached>("attached");
    QTest::addColumn<int>("ticks"); // with "Initializing" shown; the next one ends
    QTest::addColumn<QString>("end");

    const QStringList one{QStringLiteral("sda")};
    const QStringList other{QStringLiteral("sdb")};
    const QStringList two = one + other;
    const QString erase = countdown_text("10 seconds");
    const QString none = QStringLiteral("red: No drives found");
    QTest::newRow("drives at once") << Attached{{0, two}} << 11 << erase;
    QTest::newRow("no drives at all") << Attached{} << 31 << none;
    QTest::newRow("a second drive in between") << Attached{{0, one}, {7, two}} << 18 << erase;
    QTest::newRow("a drive while the last tick is made")
        << Attached{{0, one}, {11, two}} << 22 << erase;
    QTest::newRow("a drive goes, none is left") << Attached{{0, one}, {4, {}}} << 15 << none;
    QTest::newRow("another drive in its place") << Attached{{0, one}, {8, other}} << 11 << erase;
    QTest::newRow("a drive comes late") << Attached{{25, one}} << 31 << erase;
    QTest::newRow("a drive comes at the very end") << Attached{{31, one}} << 31 << erase;
    QTest::newRow("drives keep coming")
        << Attached{{0, one}, {9, two}, {18, one}, {27, two}} << 31 << erase;
}

void DiscoveryTest::waitsUntilTheListIsStable()
{
    QFETCH(Attached, attached);
    QFETCH(int, ticks);
    Appliance appliance(bus_.address(), drives_named(attached.value(0)));
    appliance.open();
    for (int shown = 1; shown <= ticks; ++shown) {
        const QString dots((shown - 1) % 4, QLatin1Char('.'));
        QCOMPARE(appliance.information(), QStringLiteral("green: Initializing") + dots);
        QCOMPARE(appliance.service.enumerations(), shown);
        if (attached.contains(shown))
            appliance.service.setDevices(drives_named(attached.value(shown)));
        appliance.tick("initTimeout");
    }
    QTEST(appliance.information(), "end");
}

void DiscoveryTest::showsDrivesAsRows()
{
    Appliance appliance(bus_.address(),
                        {fake_drive("sdb").with("DriveModel", QStringLiteral("<b>%1%2")),
                         fake_partition("sda2").with("IdType", QStringLiteral("ext4")),
                         fake_drive("sda"), fake_partition("sda1")});
    appliance.open();
    auto* tree = appliance.find<QTreeWidget>("drivesTreeWidget");
    QCOMPARE(tree->topLevelItemCount(), 2);
    const QTreeWidgetItem* row = tree->topLevelItem(0);
    QCOMPARE(row->text(0), QStringLiteral("500GB / Model sda"));
    QCOMPARE(tree->topLevelItem(1)->text(0), QStringLiteral("500GB / <b>%1%2"));
    QVERIFY(row->isExpanded());
    QCOMPARE(row->childCount(), 2);
    QCOMPARE(row->child(0)->text(0), QStringLiteral("1GB / DATA / FAT32"));
    QCOMPARE(row->child(1)->text(0), QStringLiteral("1GB / DATA / EXT4"));
    QCOMPARE(appliance.status(1), QStringLiteral("INIT 100"));
    QCOMPARE(tree->header()->logicalIndex(0), 1); // the bars stand at the left
    QCOMPARE(tree->focusPolicy(), Qt::NoFocus);
    QCOMPARE(tree->selectionMode(), QAbstractItemView::NoSelection);
    QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
    QTRY_COMPARE(QApplication::focusWidget(), appliance.find<QPushButton>("stopButton"));
}

void DiscoveryTest::rebuildsRowsOnlyWhenTheListChanges()
{
    const QList<FakeDevice> devices{fake_drive("sda"), fake_partition("sda1"), fake_drive("sdb")};
    Appliance appliance(bus_.address(), devices);
    appliance.open();
    const QPointer<QProgressBar> bar = appliance.bar(0);
    appliance.service.setDevices(devices + QList{fake_partition("sdc1")});
    appliance.tick("initTimeout");
    QCOMPARE(appliance.bar(0), bar);
    QVERIFY(dbg_string().endsWith(QStringLiteral(": no update: /dev/sda, /dev/sda1, /dev/sdb\n")));
    appliance.service.setDevices({fake_drive("sda"), fake_drive("sdb")});
    appliance.tick("initTimeout");
    QVERIFY(appliance.bar(0) != bar);
    QCOMPARE(appliance.status(0), QStringLiteral("INIT 100"));
}

void DiscoveryTest::offersRestartWithoutDrives()
{
    Appliance appliance(bus_.address(), {});
    appliance.open();
    QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
    appliance.find<QPushButton>("stopButton")->click();
    QCOMPARE(appliance.boxes, QStringList{QString::fromLatin1(kNoDrivesBox)});
    QCOMPARE(appliance.information(), QStringLiteral("red: No drives found"));
    QCOMPARE(appliance.offered(), QStringLiteral("restart"));
    auto* restart = appliance.find<QPushButton>("restartInitializationButton");
    QTRY_VERIFY(restart->hasFocus());

    appliance.service.setDevices({fake_drive("sda")});
    const int polls = appliance.service.enumerations();
    restart->click();
    QCOMPARE(appliance.service.enumerations(), polls + 1);
    QCOMPARE(appliance.information(), QStringLiteral("green: Initializing"));
    QCOMPARE(appliance.offered(), QStringLiteral("stop"));
    QCOMPARE(appliance.status(0), QStringLiteral("INIT 100"));
}

void DiscoveryTest::countsDown()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.open();
    appliance.find<QPushButton>("stopButton")->click();
    const QPointer<QProgressBar> bar = appliance.bar(0);
    for (int seconds = 10; seconds > 1; --seconds) {
        const QByteArray time = QByteArray::number(seconds) + " seconds";
        QCOMPARE(appliance.information(), countdown_text(time.constData()));
        QCOMPARE(appliance.status(0), QStringLiteral("%p% 0"));
        QCOMPARE(appliance.offered(), QStringLiteral("stop"));
        appliance.tick("countdownTimeout");
    }
    QCOMPARE(appliance.information(), countdown_text("1 second"));
    QCOMPARE(appliance.calls(), QStringList());
    appliance.tick("countdownTimeout");
    QCOMPARE(appliance.information(), QStringLiteral("green: Erasing drives..."));
    QCOMPARE(appliance.offered(), QStringLiteral("stop"));
    QCOMPARE(appliance.bar(0), bar);
}

void DiscoveryTest::stopsTheCountdown()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.open();
    auto* stop = appliance.find<QPushButton>("stopButton");
    stop->click();
    stop->click();
    QCOMPARE(appliance.information(), QStringLiteral("blue: Stopped."));
    QCOMPARE(appliance.offered(), QStringLiteral("restart"));
    QCOMPARE(appliance.status(0), QStringLiteral("%p% 0"));
    stop->click(); // hidden and without a meaning now
    QTest::qWait(1100);
    QCOMPARE(appliance.information(), QStringLiteral("blue: Stopped."));
    appliance.find<QPushButton>("restartInitializationButton")->click();
    QCOMPARE(appliance.information(), QStringLiteral("green: Initializing"));
    QCOMPARE(appliance.status(0), QStringLiteral("INIT 100"));
}

void DiscoveryTest::ticksOnceASecond()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    QElapsedTimer clock;
    clock.start();
    appliance.open();
    QTRY_COMPARE(appliance.information(), QStringLiteral("green: Initializing."));
    QVERIFY2(clock.restart() >= 950, "the discovery ticks too fast");
    appliance.find<QPushButton>("stopButton")->click();
    QTRY_COMPARE(appliance.information(), countdown_text("9 seconds"));
    QVERIFY2(clock.elapsed() >= 950, "the countdown ticks too fast");
    QCOMPARE(appliance.service.enumerations(), 2);
}

QTEST_MAIN(DiscoveryTest)
#include "discovery_test.moc"
