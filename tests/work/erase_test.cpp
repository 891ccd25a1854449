#include "app/debug_log.h"
#include "erase/postwipe_image.h"
#include "storage/drives.h"
#include "tests/storage/private_bus.h"
#include "tests/work/appliance.h"
#include "work/work_widget.h"

#include <QApplication>
#include <QTest>

namespace {

const char* const kComplete = "blue: Complete.";
const char* const kErasing = "green: Erasing drives...";
const char* const kStopQuestion =
    "WorkWidget question: If you stop erasing, not all of your data will be erased. Are you sure "
    "you want to stop?";

// The driver of one drive runs on until it is killed, that of another does as it is told.
const char* const kFirstFails = "case $1 in\n"
                                "*sda) exit 2 ;;\n"
                                "*) echo 'progress: 30'; exec sleep 60 ;;\n"
                                "esac";

QString wipe_call(const char* name, const char* mode = "write")
{
    return QStringLiteral("driver device=/dev/%1 mode=%2 pattern=VANTRELLE sectorsPerTime=256")
        .arg(QLatin1String(name), QLatin1String(mode));
}

QString failure(const char* name, const char* text)
{
    return QStringLiteral("MainWindow failure: 500GB / Model %1\n\n%2")
        .arg(QLatin1String(name), QLatin1String(text));
}

QImage picture(const Drive& drive, bool partial)
{
    return QImage(create_postwipe_image_file(drive, partial, nullptr));
}

} // namespace

class EraseTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void endsAsTheHelpersEnd_data();
    void endsAsTheHelpersEnd();
    void followsProgress_data();
    void followsProgress();
    void emulates();
    void completesWhenTheLastDriveEnds();
    void reportsEveryFailure();
    void survivesAHelperThatEndsBelowItsErrorBox();
    void goesOnWhenStoppingIsDenied();
    void formatsWhatWasStopped();
    void stopsBelowAnErrorBox();
    void asksInVainWhenAllHasEnded();
    void killsTheHelpersAtTheEnd();

private:
    PrivateBus bus_;
};

void EraseTest::initTestCase()
{
    dbg_init(DBG_TYPE_STRING, 1);
    QVERIFY(bus_.start());
}

void EraseTest::endsAsTheHelpersEnd_data()
{
    QTest::addColumn<QByteArray>("driver");
    QTest::addColumn<QByteArray>("format");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("failure"); // how it begins
    QTest::addColumn<bool>("isFormatCalled");

    const auto row = [](const char* name, const char* driver, const char* format,
                        const char* status, const char* failure, bool isFormatCalled) {
        QTest::newRow(name) << QByteArray(driver) << QByteArray(format) << QString(status)
                            << QString(failure) << isFormatCalled;
    };
    const char* const wiped = "echo 'progress: 100'";
    row("both succeed", wiped, "", "DONE 100", "", true);
    row("the wipe fails", "echo 'progress: 42'; exit 2", "", "ERROR 42",
        "Erasing failed: exit code: 2", false);
    row("the wipe fails at its end", "echo 'progress: 100'; exit 1", "", "ERROR 100",
        "Erasing failed: exit code: 1", false);
    row("the driver crashes", "kill -SEGV $$", "", "ERROR 0", "Erasing failed: exit code: 11",
        false);
    row("the driver is missing", nullptr, "", "ERROR 0", "Erasing failed: ", false);
    row("the driver reports and fails", "echo 'error: no %1 <b>disk'; exit 1", "", "ERROR 0",
        "Erasing failed: no %1 <b>disk", false);
    row("the driver reports and yet succeeds", "echo 'error: bad'", "", "ERROR 0",
        "Erasing failed: bad", false);
    row("the driver reports and stays silent", "echo 'error: bad'; exec sleep 60", "", "ERROR 0",
        "Erasing failed: bad", false);
    row("the report holds a zero byte", "printf 'error: bad\\000sector\\n'; exit 1", "", "ERROR 0",
        "Erasing failed: bad", false);
    row("the format fails", wiped, "echo 'error: no'; exit 3", "ERROR 0",
        "Formatting failed: exit code: 3", true);
    row("the format crashes", wiped, "kill -KILL $$", "ERROR 0", "Formatting failed: exit code: 9",
        true);
    row("the format is missing", wiped, nullptr, "ERROR 100", "Formatting failed: ", false);
    row("there is no room for the picture", "echo 'progress: 100'; rm -r \"${0%/*}\"", "",
        "ERROR 100", "Formatting failed: Cannot create image file", false);
}

void EraseTest::endsAsTheHelpersEnd()
{
    QFETCH(QByteArray, driver);
    QFETCH(QByteArray, format);
    QFETCH(QString, failure);
    QFETCH(bool, isFormatCalled);
    Appliance appliance(bus_.address(),
                        {fake_drive("sda").with("DriveModel", QStringLiteral("<b>%1%2"))});
    for (const auto& [name, text] : {std::pair("driver", driver), std::pair("format", format)}) {
        if (text.isNull())
            QVERIFY(QFile::remove(appliance.library.filePath(QLatin1String(name))));
        else
            appliance.setHelper(name, text.constData());
    }
    appliance.openAndErase();
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QTEST(appliance.status(0), "status");
    QCOMPARE(appliance.offered(), QString());
    QCOMPARE(appliance.boxes.size(), failure.isEmpty() ? 0 : 1);
    const QString box = QStringLiteral("MainWindow failure: 500GB / <b>%1%2\n\n") + failure;
    QVERIFY2(failure.isEmpty() || appliance.boxes[0].startsWith(box),
             qPrintable(appliance.boxes.join(u'\n')));
    QStringList calls;
    if (!driver.isNull())
        calls << wipe_call("sda");
    if (isFormatCalled)
        calls << QStringLiteral("format /dev/sda IMAGE");
    QCOMPARE(appliance.calls(), calls);
}

void EraseTest::followsProgress_data()
{
    QTest::addColumn<QByteArray>("driver");
    QTest::addColumn<QList<int>>("values"); // as the bar takes them, the format's included

    QTest::newRow("several lines at once")
        << QByteArray("printf 'progress: 10\\n\\nother\\nprogress: 20\\n'")
        << QList{10, 20, 0, 100};
    QTest::newRow("a line in pieces is two lines")
        << QByteArray("printf 'progress: 5\\nprogr'; sleep 0.2; printf 'ess: 30\\nprogress: 40\\n'")
        << QList{5, 40, 0, 100};
    QTest::newRow("nothing counts behind a zero byte")
        << QByteArray("printf 'progress: 10\\n\\000progress: 20\\n'") << QList{10, 0, 100};
    QTest::newRow("a driver that says nothing") << QByteArray() << QList{100};
}

void EraseTest::followsProgress()
{
    QFETCH(QByteArray, driver);
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.setHelper("driver", driver.constData());
    appliance.openAndErase();
    QList<int> values;
    connect(appliance.bar(0), &QProgressBar::valueChanged, this,
            [&values](int value) { values << value; });
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QTEST(values, "values");
}

void EraseTest::emulates()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.openAndErase(true);
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.status(0), QStringLiteral("DONE 100"));
    QCOMPARE(appliance.calls(), QStringList({wipe_call("sda", "read"),
                                             QStringLiteral("format /dev/sda-emulate IMAGE")}));
}

void EraseTest::completesWhenTheLastDriveEnds()
{
    Appliance appliance(bus_.address(), {fake_drive("sda"), fake_drive("sdb"), fake_drive("sdc")});
    appliance.setHelper("driver", "case $1 in *sdb) exit 2 ;; esac");
    appliance.setHelper("format",
                        "case $1 in *sdc) until test -e $here/go; do sleep 0.02; done; esac");
    appliance.openAndErase();
    QTRY_COMPARE(appliance.status(0), QStringLiteral("DONE 100"));
    QTRY_COMPARE(appliance.status(2), QStringLiteral("FORMAT 0"));
    QTRY_COMPARE(appliance.boxes, QStringList{failure("sdb", "Erasing failed: exit code: 2")});
    QCOMPARE(appliance.information(), QString(kErasing));
    QCOMPARE(appliance.offered(), QStringLiteral("stop"));
    appliance.touch("go");
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.status(1), QStringLiteral("ERROR 0"));
    QCOMPARE(appliance.status(2), QStringLiteral("DONE 100"));
    QCOMPARE(appliance.image("sda"), picture(get_drives()[0], false));
}

void EraseTest::reportsEveryFailure()
{
    Appliance appliance(bus_.address(), {fake_drive("sda"), fake_drive("sdb")});
    appliance.setHelper("driver", "exit 2");
    // The boxes are only answered when both drives have failed: one is open above the other.
    appliance.answer = [&](const QString&) {
        const bool haveBothFailed = appliance.bar(0)->format() == QLatin1String("ERROR") &&
                                    appliance.bar(1)->format() == QLatin1String("ERROR");
        return haveBothFailed ? QMessageBox::Ok : QMessageBox::NoButton;
    };
    appliance.openAndErase();
    QTRY_COMPARE(appliance.boxes.size(), 2);
    appliance.boxes.sort();
    QCOMPARE(appliance.boxes, QStringList({failure("sda", "Erasing failed: exit code: 2"),
                                           failure("sdb", "Erasing failed: exit code: 2")}));
    QTRY_COMPARE(appliance.information(), QString(kComplete));
}

void EraseTest::survivesAHelperThatEndsBelowItsErrorBox()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.setHelper("driver", "echo 'error: bad'; echo 'progress: 7'; exit 1");
    appliance.answer = [](const QString&) {
        const bool hasEnded = dbg_string().endsWith(QStringLiteral(": id: 0: close()\n"));
        return hasEnded ? QMessageBox::Ok : QMessageBox::NoButton;
    };
    appliance.openAndErase();
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.boxes, QStringList{failure("sda", "Erasing failed: bad")});
    QCOMPARE(appliance.bar(0)->format(), QStringLiteral("ERROR"));
}

void EraseTest::goesOnWhenStoppingIsDenied()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.setHelper("driver",
                        "echo 'progress: 30'; until test -e $here/go; do sleep 0.02; done");
    appliance.answer = [](const QString&) { return QMessageBox::No; };
    appliance.openAndErase();
    QTRY_COMPARE(appliance.status(0), QStringLiteral("%p% 30"));
    appliance.find<QPushButton>("stopButton")->click();
    QCOMPARE(appliance.boxes, QStringList{QString(kStopQuestion)});
    QCOMPARE(appliance.information(), QString(kErasing));
    QCOMPARE(appliance.offered(), QStringLiteral("stop"));
    QCOMPARE(appliance.runningHelpers(), 1);
    appliance.touch("go");
    QTRY_COMPARE(appliance.status(0), QStringLiteral("DONE 100"));
    QCOMPARE(appliance.image("sda"), picture(get_drives()[0], false));
}

void EraseTest::formatsWhatWasStopped()
{
    Appliance appliance(bus_.address(), {fake_drive("sda"), fake_drive("sdb")});
    appliance.setHelper("driver", "case $1 in *sdb) echo 'progress: 30'; exec sleep 60; esac");
    appliance.setHelper("format", "until test -e $here/go; do sleep 0.02; done");
    appliance.openAndErase();
    QTRY_COMPARE(appliance.status(0), QStringLiteral("FORMAT 0"));
    QTRY_COMPARE(appliance.status(1), QStringLiteral("%p% 30"));
    appliance.find<QPushButton>("stopButton")->click();
    QCOMPARE(appliance.boxes, QStringList{QString(kStopQuestion)});
    QCOMPARE(appliance.status(0), QStringLiteral("STOPPED 0")); // its format job was running
    QCOMPARE(appliance.status(1), QStringLiteral("FORMAT 0"));
    QCOMPARE(appliance.offered(), QString());
    QCOMPARE(appliance.information(), QString(kErasing));
    appliance.touch("go");
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.status(1), QStringLiteral("DONE 100"));
    const Drive stopped = get_drives()[1];
    QCOMPARE(appliance.image("sdb"), picture(stopped, true));
    QVERIFY(picture(stopped, true) != picture(stopped, false));
    QTRY_COMPARE(appliance.runningHelpers(), 0);
}

void EraseTest::stopsBelowAnErrorBox()
{
    Appliance appliance(bus_.address(), {fake_drive("sda"), fake_drive("sdb")});
    appliance.setHelper("driver", kFirstFails);
    bool isAsked = false;
    appliance.answer = [&](const QString& box) {
        if (box == QLatin1String(kStopQuestion))
            return QMessageBox::Yes;
        if (!isAsked && appliance.status(1) == QLatin1String("%p% 30")) {
            isAsked = true;
            QTimer::singleShot(0, appliance.find<QPushButton>("stopButton"), &QPushButton::click);
        }
        return isAsked && appliance.boxes.contains(QLatin1String(kStopQuestion))
                   ? QMessageBox::Ok
                   : QMessageBox::NoButton;
    };
    appliance.openAndErase();
    QTRY_COMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.boxes,
             QStringList({QString(kStopQuestion), failure("sda", "Erasing failed: exit code: 2")}));
    QCOMPARE(appliance.status(0), QStringLiteral("ERROR 0"));
    QCOMPARE(appliance.status(1), QStringLiteral("DONE 100"));
}

void EraseTest::asksInVainWhenAllHasEnded()
{
    Appliance appliance(bus_.address(), {fake_drive("sda")});
    appliance.setHelper("driver", "until test -e $here/go; do sleep 0.02; done");
    appliance.answer = [&](const QString&) {
        appliance.touch("go");
        const bool isComplete = appliance.information() == QLatin1String(kComplete);
        return isComplete ? QMessageBox::Yes : QMessageBox::NoButton;
    };
    appliance.openAndErase();
    appliance.find<QPushButton>("stopButton")->click();
    QCOMPARE(appliance.information(), QString(kComplete));
    QCOMPARE(appliance.status(0), QStringLiteral("DONE 100"));
    QCOMPARE(appliance.offered(), QString());
}

void EraseTest::killsTheHelpersAtTheEnd()
{
    Appliance appliance(bus_.address(), {fake_drive("sda"), fake_drive("sdb")});
    appliance.setHelper("driver", "exec sleep 60");
    appliance.openAndErase();
    QTRY_COMPARE(appliance.runningHelpers(), 2);
    QTimer::singleShot(0, appliance.find<QAction>("actionQuit"), &QAction::trigger);
    QCOMPARE(QApplication::exec(), 0);
    appliance.window.reset();
    QTRY_COMPARE(appliance.runningHelpers(), 0);
}

QTEST_MAIN(EraseTest)
#include "erase_test.moc"
