#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "erase/post_wipe.h"
#include "tests/support/appliance.h"

#include <QApplication>

#include <csignal>
#include <sys/resource.h>

namespace {

const char* const kComplete = "blue: Complete.";
const char* const kErasing = "green: Erasing drives... [stop]";
const char* const kStopQuestion =
    "WorkWidget question: If you stop erasing, not all of your data will be erased. Are you sure "
    "you want to stop?";

QString failure(const char* model, const QString& text)
{
    return QString("MainWindow failure: 500GB / %1\n\nErasing failed: ").arg(model) + text;
}

QImage picture(const QString& model, const QString& how)
{
    PostWipe widget("<html>500GB / " + model + "<p>This drive was " + how + " with " +
                        theProgramConfig().nameHtml().c_str() +
                        "<sup>TM</sup><p>For more information visit <font color='blue'>"
                        "https://vantrelle.example/vantrelleplus</font></html>",
                    nullptr);
    QImage image(800, 600, QImage::Format_ARGB32);
    widget.render(&image);
    return image;
}

struct Ending {
    const char* driver; // and format: the shell text
    const char* format;
    const char* status;
    const char* failure; // how it begins
    int calls;
};

qsizetype pictures(const Appliance& appliance)
{
    return QDir(appliance.library.path()).entryList({"*.png"}).size();
}

// So that what they lead to has to share one turn of the event loop, or wait.
void endAllBeforeTheNextTurn(Appliance& appliance)
{
    appliance.eraseWith("wait_for_go");
    QTRY_COMPARE(appliance.calls().size(), 3);
    appliance.go();
    QTest::qSleep(500);
}

} // namespace

class EraseTest : public BusTest {
    Q_OBJECT

private slots:
    void endsAsTheHelpersEnd_data()
    {
        QTest::addColumn<Ending>("ending");
        const char* const wiped = "echo 'progress: 100'";
        QTest::newRow("the wipe fails at its end") << Ending{
            "echo 'progress: 100'; exit 1", "", "ERROR 100", "Erasing failed: exit code: 1", 1};
        QTest::newRow("no driver") << Ending{nullptr, "", "ERROR 0", "Erasing failed: ", 0};
        QTest::newRow("the driver reports and yet succeeds")
            << Ending{"echo 'Error: x'; echo 'error: no %1 <b>disk'; echo 'progress: 100'", "",
                      "ERROR 100", "Erasing failed: no %1 <b>disk", 1};
        QTest::newRow("the driver reports and stays silent")
            << Ending{"echo 'error: bad'; exec sleep 60", "", "ERROR 0", "Erasing failed: bad", 1};
        QTest::newRow("the format fails") << Ending{wiped, "echo 'error: no'; exit 3", "ERROR 0",
                                                    "Formatting failed: exit code: 3", 2};
        QTest::newRow("no format") << Ending{wiped, nullptr, "ERROR 100", "Formatting failed: ", 1};
        QTest::newRow("there is no room for the picture")
            << Ending{"echo 'progress: 100'; rm -r \"${0%/*}\"", "", "ERROR 100",
                      "Formatting failed: Cannot create image file", 1};
    }

    void endsAsTheHelpersEnd()
    {
        QFETCH(Ending, ending);
        Appliance appliance({fake_drive("sda").with("DriveModel", "<b>%1%2")});
        appliance.setHelper("format", ending.format);
        appliance.eraseWith(ending.driver);
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.statuses(), ending.status);
        QCOMPARE(appliance.calls().size(), ending.calls);
        const QString box = QString("MainWindow failure: 500GB / <b>%1%2\n\n") + ending.failure;
        QVERIFY(appliance.boxes.value(0).startsWith(box));
        QCOMPARE(appliance.boxes.size(), 1);
    }

    void callsTheHelpers()
    {
        for (const bool emulate : {false, true}) {
            Appliance appliance({fake_drive("sda")});
            appliance.setHelper("driver", "printf 'progress: 10\\n\\nprogress:7\\nProgress: 8\\n';"
                                          "printf 'progress: x\\nprogress: 20\\n'");
            appliance.openAndErase(emulate);
            QList<int> values;
            connect(appliance.bar(0), &QProgressBar::valueChanged, this,
                    [&values](int value) { values << value; });
            QTRY_COMPARE(appliance.information(), kComplete);
            QCOMPARE(values, QList({10, 0, 20, 0, 100}));
            QCOMPARE(appliance.calls().join('\n'),
                     QString("driver device=/dev/sda mode=%1 pattern=VANTRELLE sectorsPerTime=256\n"
                             "format /dev/sda%2 IMAGE")
                         .arg(emulate ? "read" : "write", emulate ? "-emulate" : ""));
        }
    }

    void completesWhenTheLastDriveEnds()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb"), fake_drive("sdc")});
        appliance.eraseWith("case $1 in *sdb) exit 2 ;; *sdc) wait_for_go ;; esac");
        QTRY_COMPARE(appliance.statuses(), "DONE 100 | ERROR 0 | %p% 0");
        QTRY_COMPARE(appliance.boxes, QStringList{failure("Model sdb", "exit code: 2")});
        appliance.answer = [](const QString&) { return QMessageBox::No; };
        appliance.clickStop();
        QCOMPARE(appliance.boxes.last(), kStopQuestion);
        QCOMPARE(appliance.information(), kErasing);
        QCOMPARE(appliance.statuses(), "DONE 100 | ERROR 0 | %p% 0");
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.statuses(), "DONE 100 | ERROR 0 | DONE 100");
        QCOMPARE(appliance.image("sdc"), picture("Model sdc", "erased"));
    }

    // Every drive is started, or every helper's end is reported, before anybody answers a box.
    void goesOnBelowAnErrorBox()
    {
        for (const auto& [driver, logged, message] :
             std::initializer_list<std::array<const char*, 3>>{
                 {nullptr, " mode=write ", "execvp: No such file or directory"},
                 {"echo 'error: bad'; echo 'progress: 7'; exit 1", ": close()\n", "bad"}}) {
            Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
            const qsizetype logStart = dbg_string().size();
            appliance.answer = [&](const QString&) {
                return dbg_string().mid(logStart).count(logged) == 2 ? QMessageBox::Ok
                                                                     : QMessageBox::NoButton;
            };
            appliance.eraseWith(driver);
            QTRY_COMPARE(appliance.information(), kComplete);
            appliance.boxes.sort();
            QCOMPARE(appliance.boxes,
                     QStringList({failure("Model sda", message), failure("Model sdb", message)}));
            QCOMPARE(appliance.statuses().count("ERROR"), 2);
        }
    }

    void formatsWhatWasStopped()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb").with("DriveModel", "<i></i>M")});
        appliance.setHelper("format", "wait_for_go");
        appliance.eraseWith("case $1 in *sdb) echo 'progress: 30'; exec sleep 60; esac");
        QTRY_COMPARE(appliance.statuses(), "FORMAT 0 | %p% 30");
        appliance.clickStop();
        // The first one's format job was running; the turn of the second one's comes.
        QCOMPARE(appliance.statuses(), "STOPPED 0 | FORMAT 30");
        QCOMPARE(appliance.information(), "green: Erasing drives...");
        QTRY_COMPARE(appliance.statuses(), "STOPPED 0 | FORMAT 0");
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.statuses(), "STOPPED 0 | DONE 100");
        const QImage partially = picture("&lt;i&gt;&lt;/i&gt;M", "partially erased");
        QCOMPARE(appliance.image("sdb"), partially);
        QVERIFY(partially != picture("M", "partially erased"));
        QVERIFY(partially != picture("&lt;i&gt;&lt;/i&gt;M", "erased"));
    }

    void startsNoneThatWasStoppedBefore()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.openAndErase();
        appliance.clickStop(); // answered before the first start has its turn
        QCOMPARE(appliance.information(), kComplete);
        QTest::qWait(100);
        QCOMPARE(appliance.calls(), QStringList());
        QCOMPARE(appliance.statuses(), "STOPPED 0 | STOPPED 0");
    }

    void formatsNoneThatWasStoppedBefore()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb"), fake_drive("sdc")});
        endAllBeforeTheNextTurn(appliance);
        while (appliance.statuses().count("FORMAT ") < 3) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        const auto started = pictures(appliance);
        QVERIFY(started < 3); // the others wait for their pictures
        appliance.clickStop();
        QTRY_COMPARE(appliance.information(), kComplete);
        QTest::qWait(100);
        QCOMPARE(pictures(appliance), started); // each is made at once with its format job
        QVERIFY(appliance.statuses().count("STOPPED 0") >= 3 - started);
    }

    void goesOnBehindAFailingStart()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        QStringList shown;
        appliance.answer = [&](const QString&) {
            appliance.setHelper("driver", "wait_for_go");
            QTimer::singleShot(0, [&] { shown << appliance.information(); });
            return QMessageBox::Ok;
        };
        appliance.eraseWith(nullptr);
        QTRY_COMPARE(appliance.runningHelpers(), 1);
        QCOMPARE(shown, QStringList{kErasing}); // not complete: the other had not been started
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.statuses(), "ERROR 0 | DONE 100");
    }

    void survivesItsEndBelowABox() // of a failed start, picture and job
    {
        for (const char* driver : {(const char*)nullptr, "rm -r \"${0%/*}\"", "exit 1"}) {
            Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
            appliance.answer = [&](const QString&) {
                appliance.window.reset();
                return QMessageBox::NoButton;
            };
            appliance.eraseWith(driver);
            QTRY_VERIFY(!appliance.window);
            QTest::qWait(100);
            QCOMPARE(appliance.runningHelpers(), 0);
        }
    }

    void refusesAnotherDriveInItsPlace_data()
    {
        QTest::addColumn<FakeDevice>("now");
        QTest::addColumn<QString>("other"); // how the refusal ends; empty when it is the same drive

        const FakeDevice listed = fake_drive("sda").with("DeviceDiskSequence", 7ULL);
        QTest::newRow("the same") << listed << "";
        QTest::newRow("another model")
            << listed.with("DriveModel", "<B>%1") << "500GB / <B>%1, serial number Serial sda";
        QTest::newRow("another serial")
            << listed.with("DriveSerial", "B") << "500GB / Model sda, serial number B";
        QTest::newRow("another size") << listed.with("DeviceSize", 2'000'000'000ULL)
                                      << "2GB / Model sda, serial number Serial sda";
        QTest::newRow("attached anew, the same") << listed.with("DeviceDiskSequence", 8ULL) << "";
        QTest::newRow("attached anew, without a serial")
            << listed.with("DeviceDiskSequence", 8ULL).with("DriveSerial", {})
            << "500GB / Model sda, serial number ";
        QTest::newRow("a slow probe: no model, no serial, no number")
            << listed.with("DriveModel", {}).with("DriveSerial", {}).with("DeviceDiskSequence", {})
            << "";
        QTest::newRow("no answer") << FakeDevice{"sda", {}, "gone", {}} << "";
    }

    void refusesAnotherDriveInItsPlace()
    {
        QFETCH(FakeDevice, now);
        QFETCH(QString, other);
        const FakeDevice listed = fake_drive("sda").with("DeviceDiskSequence", 7ULL);
        for (const bool isFormat : {false, true}) { // the swap before the wipe, before the format
            Appliance appliance({listed});
            appliance.setHelper("driver", "wait_for_go; echo $VANTRELLE_DISKSEQ >${0%/*}/number");
            appliance.open();
            appliance.clickStop();
            if (!isFormat) {
                appliance.service.setDevices({now});
            }
            while (appliance.information().startsWith("red: ")) {
                appliance.tick("countdownTimeout");
            }
            if (isFormat) {
                QTRY_COMPARE(appliance.calls().size(), 1);
                appliance.service.setDevices({now});
            }
            appliance.go();
            QTRY_COMPARE(appliance.information(), kComplete);
            QVERIFY(appliance.statuses().startsWith(other.isEmpty() ? "DONE" : "ERROR"));
            QCOMPARE(appliance.calls().size(), other.isEmpty() ? 2 : int(isFormat));
            QFile number(appliance.library.filePath("number")); // what the driver has to find
            if (other.isEmpty() && !isFormat) {
                const auto given = now.properties.value("DeviceDiskSequence", 7).toByteArray();
                QVERIFY(number.open(QIODevice::ReadOnly));
                QCOMPARE(number.readAll().trimmed(), given);
            }
            const QString box = QString("MainWindow failure: 500GB / Model sda\n\n") +
                                (isFormat ? "Formatting" : "Erasing") +
                                " failed: another drive is at /dev/sda now: " + other;
            QCOMPARE(appliance.boxes, other.isEmpty() ? QStringList() : QStringList{box});
        }
    }

    void leavesNoKeyOnAButton()
    {
        for (const bool isStopped : {false, true}) {
            Appliance appliance({fake_drive("sda")});
            appliance.setHelper("format", "wait_for_go");
            appliance.eraseWith(isStopped ? "exec sleep 60" : "");
            QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
            if (isStopped) {
                QTRY_COMPARE(appliance.runningHelpers(), 1);
                appliance.clickStop();
            } else {
                appliance.go();
                QTRY_COMPARE(appliance.information(), kComplete);
            }
            QTRY_COMPARE(QApplication::activeWindow(), appliance.window.get());
            QVERIFY(!qobject_cast<QAbstractButton*>(QApplication::focusWidget()));
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QCOMPARE(QApplication::focusWidget()->objectName(), "restartComputerButton");
        }
    }

    void givesEachPictureATurnOfTheEventLoop()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb"), fake_drive("sdc")});
        endAllBeforeTheNextTurn(appliance);
        qsizetype before = 0;
        while (appliance.information() != kComplete) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            QVERIFY(pictures(appliance) <= before + 1);
            before = pictures(appliance);
        }
        QCOMPARE(before, 3);
    }

    // A failure's box is open above the question.
    void asksInVainWhenAllHasEnded()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.answer = [&](const QString& box) {
            if (box != kStopQuestion) {
                return QMessageBox::Ok;
            }
            appliance.go();
            return appliance.information() == kComplete ? QMessageBox::Yes : QMessageBox::NoButton;
        };
        appliance.eraseWith("wait_for_go; case $1 in *sda) exit 2 ;; esac");
        appliance.clickStop();
        QCOMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.boxes,
                 QStringList({failure("Model sda", "exit code: 2"), kStopQuestion}));
        QCOMPARE(appliance.statuses(), "ERROR 0 | DONE 100");
    }

    void noticesAPictureThatIsCutShort()
    {
        const Appliance appliance({}); // for its library
        const QFileInfo whole(create_postwipe_image_file(Drive(), true, nullptr));
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{static_cast<rlim_t>(whole.size() - 1), RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        QString error;
        const QString path = create_postwipe_image_file(Drive(), true, &error);
        limit.rlim_cur = RLIM_INFINITY;
        setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(path.isNull());
        QCOMPARE(error, "Cannot save image file");
        QCOMPARE(pictures(appliance), 2); // it stays
    }

    void killsTheHelpersAtTheEnd()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.eraseWith("exec sleep 60");
        QTRY_COMPARE(appliance.runningHelpers(), 2);
        auto* quit = appliance.find<QAction>("actionQuit");
        QMetaObject::invokeMethod(quit, "trigger", Qt::QueuedConnection);
        QCOMPARE(QApplication::exec(), 0);
        appliance.window.reset();
        QTRY_COMPARE(appliance.runningHelpers(), 0);
    }
};

QTEST_MAIN(EraseTest)
#include "erase_test.moc"
