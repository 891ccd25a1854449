#include "app/base/debug_log.h"
#include "erase/post_wipe.h"
#include "storage/drives.h"
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

QImage picture(const Drive& drive, bool partial)
{
    return QImage(create_postwipe_image_file(drive, partial, nullptr));
}

// What pictures say while they are made.
struct PictureTexts : QObject {
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        const auto* label = qobject_cast<QLabel*>(watched);
        if (label != nullptr && event->type() == QEvent::Polish) {
            texts += label->text();
        }
        return false;
    }

    QString texts;
};

} // namespace

class EraseTest : public BusTest {
    Q_OBJECT

private slots:
    void endsAsTheHelpersEnd_data()
    {
        QTest::addColumn<QByteArray>("driver");
        QTest::addColumn<QByteArray>("format");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("failure"); // how it begins
        QTest::addColumn<int>("calls");

        const auto row = [](const char* name, const char* driver, const char* format,
                            const char* status, const char* failure, int calls) {
            QTest::newRow(name) << QByteArray(driver) << QByteArray(format) << QString(status)
                                << QString(failure) << calls;
        };
        const char* const wiped = "echo 'progress: 100'";
        row("the wipe fails at its end", "echo 'progress: 100'; exit 1", "", "ERROR 100",
            "Erasing failed: exit code: 1", 1);
        row("no driver", nullptr, "", "ERROR 0", "Erasing failed: ", 0);
        row("the driver reports and yet succeeds",
            "echo 'Error: x'; echo 'error: no %1 <b>disk'; echo 'progress: 100'", "", "ERROR 100",
            "Erasing failed: no %1 <b>disk", 1);
        row("the driver reports and stays silent", "echo 'error: bad'; exec sleep 60", "",
            "ERROR 0", "Erasing failed: bad", 1);
        row("the format fails", wiped, "echo 'error: no'; exit 3", "ERROR 0",
            "Formatting failed: exit code: 3", 2);
        row("no format", wiped, nullptr, "ERROR 100", "Formatting failed: ", 1);
        row("there is no room for the picture", "echo 'progress: 100'; rm -r \"${0%/*}\"", "",
            "ERROR 100", "Formatting failed: Cannot create image file", 1);
    }

    void endsAsTheHelpersEnd()
    {
        QFETCH(QByteArray, driver);
        QFETCH(QByteArray, format);
        QFETCH(QString, failure);
        Appliance appliance({fake_drive("sda").with("DriveModel", "<b>%1%2")});
        appliance.setHelper("driver", driver);
        appliance.setHelper("format", format);
        appliance.openAndErase();
        QTRY_COMPARE(appliance.information(), kComplete);
        QTEST(appliance.status(0), "status");
        QTEST(int(appliance.calls().size()), "calls");
        const QString box = "MainWindow failure: 500GB / <b>%1%2\n\n" + failure;
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
        appliance.setHelper("driver", "case $1 in *sdb) exit 2 ;; *sdc) wait_for_go ;; esac");
        appliance.openAndErase();
        QTRY_COMPARE(appliance.status(0), "DONE 100");
        QTRY_COMPARE(appliance.boxes, QStringList{failure("Model sdb", "exit code: 2")});
        appliance.answer = [](const QString&) { return QMessageBox::No; };
        appliance.clickStop();
        QCOMPARE(appliance.boxes.last(), kStopQuestion);
        QCOMPARE(appliance.information(), kErasing);
        QCOMPARE(appliance.status(2), "%p% 0");
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.status(1), "ERROR 0");
        QCOMPARE(appliance.status(2), "DONE 100");
        QCOMPARE(appliance.image("sdc"), picture(get_drives()[2], false));
    }

    void goesOnBelowAnErrorBox_data()
    {
        QTest::addColumn<QByteArray>("driver");
        QTest::addColumn<QString>("logged"); // by both drives, before anybody answers a box
        QTest::addColumn<QString>("message");
        QTest::newRow("every drive is started") << QByteArray() << " mode=write "
                                                << "execvp: No such file or directory";
        QTest::newRow("every helper ends, and its failure is reported")
            << QByteArray("echo 'error: bad'; echo 'progress: 7'; exit 1") << ": close()\n"
            << "bad";
    }

    void goesOnBelowAnErrorBox()
    {
        QFETCH(QByteArray, driver);
        QFETCH(QString, logged);
        QFETCH(QString, message);
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.setHelper("driver", driver);
        const qsizetype logStart = dbg_string().size();
        appliance.answer = [&](const QString&) {
            return dbg_string().mid(logStart).count(logged) == 2 ? QMessageBox::Ok
                                                                 : QMessageBox::NoButton;
        };
        appliance.openAndErase();
        QTRY_COMPARE(appliance.information(), kComplete);
        appliance.boxes.sort();
        QCOMPARE(appliance.boxes,
                 QStringList({failure("Model sda", message), failure("Model sdb", message)}));
        QCOMPARE(appliance.bar(0)->format() + appliance.bar(1)->format(), "ERRORERROR");
    }

    void formatsWhatWasStopped()
    {
        Appliance appliance({fake_drive("sda").with("DriveModel", "M"),
                             fake_drive("sdb").with("DriveModel", "<i></i>M")});
        appliance.setHelper("driver", "case $1 in *sdb) echo 'progress: 30'; exec sleep 60; esac");
        appliance.setHelper("format", "wait_for_go");
        appliance.openAndErase();
        QTRY_COMPARE(appliance.status(0), "FORMAT 0");
        QTRY_COMPARE(appliance.status(1), "%p% 30");
        appliance.clickStop();
        QCOMPARE(appliance.status(0), "STOPPED 0"); // its format job was running
        QCOMPARE(appliance.status(1), "FORMAT 30"); // its turn comes
        QCOMPARE(appliance.information(), "green: Erasing drives...");
        QTRY_COMPARE(appliance.status(1), "FORMAT 0");
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.status(1), "DONE 100");
        PictureTexts words;
        qApp->installEventFilter(&words);
        const Drive stopped = get_drives()[1];
        static_cast<void>(picture(stopped, true));
        QVERIFY(words.texts.contains("This drive was partially erased with "));
        words.texts.clear();
        static_cast<void>(picture(stopped, false));
        QVERIFY(words.texts.contains("This drive was erased with "));
        QCOMPARE(appliance.image("sdb"), picture(stopped, true));
        QCOMPARE(appliance.image("sdb").size(), QSize(800, 600));
        QVERIFY(picture(stopped, true) != picture(stopped, false));
        QVERIFY(picture(stopped, true) != picture(get_drives()[0], true));
    }

    void startsNoneThatWasStoppedBefore()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.openAndErase();
        appliance.clickStop(); // answered before the first start has its turn
        QCOMPARE(appliance.information(), kComplete);
        QTest::qWait(100);
        QCOMPARE(appliance.calls(), QStringList());
        QCOMPARE(appliance.status(0) + '|' + appliance.status(1), "STOPPED 0|STOPPED 0");
    }

    void formatsNoneThatWasStoppedBefore()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb"), fake_drive("sdc")});
        appliance.setHelper("driver", "wait_for_go");
        appliance.openAndErase();
        QTRY_COMPARE(appliance.calls().size(), 3);
        appliance.go();
        QTest::qSleep(500); // so that all have ended before the next turn
        const auto isFormatting = [&](int row) { return appliance.bar(row)->format() == "FORMAT"; };
        while (!isFormatting(0) || !isFormatting(1) || !isFormatting(2)) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        const auto started = QDir(appliance.library.path()).entryList({"*.png"}).size();
        QVERIFY(started < 3); // the others wait for their pictures
        appliance.clickStop();
        QTRY_COMPARE(appliance.information(), kComplete);
        QTest::qWait(100);
        QVERIFY(appliance.calls().filter("format ").size() <= started);
        qsizetype stopped = 0;
        for (int row = 0; row < 3; ++row) {
            stopped += appliance.status(row) == "STOPPED 0" ? 1 : 0;
        }
        QVERIFY(stopped >= 3 - started);
    }

    void goesOnBehindAFailingStart()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.setHelper("driver", nullptr);
        QStringList shown;
        appliance.answer = [&](const QString&) {
            appliance.setHelper("driver", "wait_for_go");
            QTimer::singleShot(0, [&] { shown << appliance.information(); });
            return QMessageBox::Ok;
        };
        appliance.openAndErase();
        QTRY_COMPARE(appliance.runningHelpers(), 1);
        QCOMPARE(shown, QStringList{kErasing}); // not complete: the other had not been started
        appliance.go();
        QTRY_COMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.status(0) + '|' + appliance.status(1), "ERROR 0|DONE 100");
    }

    void survivesItsEndBelowABox() // of a failed start, picture and job
    {
        for (const char* driver : {(const char*)nullptr, "rm -r \"${0%/*}\"", "exit 1"}) {
            Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
            appliance.setHelper("driver", driver);
            appliance.answer = [&](const QString&) {
                appliance.window.reset();
                return QMessageBox::NoButton;
            };
            appliance.openAndErase();
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
            QCOMPARE(appliance.bar(0)->format(), other.isEmpty() ? "DONE" : "ERROR");
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
            appliance.setHelper("driver", isStopped ? "exec sleep 60" : "");
            appliance.setHelper("format", "wait_for_go");
            appliance.openAndErase();
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
        appliance.setHelper("driver", "wait_for_go");
        appliance.openAndErase();
        QTRY_COMPARE(appliance.calls().size(), 3);
        appliance.go();
        QTest::qSleep(500); // so that all have ended before the next turn
        qsizetype pictures = 0;
        while (appliance.information() != kComplete) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
            const qsizetype now = QDir(appliance.library.path()).entryList({"*.png"}).size();
            QVERIFY(now <= pictures + 1);
            pictures = now;
        }
        QCOMPARE(pictures, 3);
    }

    // A failure's box is open above the question.
    void asksInVainWhenAllHasEnded()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.setHelper("driver", "wait_for_go; case $1 in *sda) exit 2 ;; esac");
        appliance.answer = [&](const QString& box) {
            if (box != kStopQuestion) {
                return QMessageBox::Ok;
            }
            appliance.go();
            return appliance.information() == kComplete ? QMessageBox::Yes : QMessageBox::NoButton;
        };
        appliance.openAndErase();
        appliance.clickStop();
        QCOMPARE(appliance.information(), kComplete);
        QCOMPARE(appliance.boxes,
                 QStringList({failure("Model sda", "exit code: 2"), kStopQuestion}));
        QCOMPARE(appliance.status(0) + appliance.status(1), "ERROR 0DONE 100");
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
        QCOMPARE(QDir(appliance.library.path()).entryList({"*.png"}).size(), 2); // it stays
    }

    void killsTheHelpersAtTheEnd()
    {
        Appliance appliance({fake_drive("sda"), fake_drive("sdb")});
        appliance.setHelper("driver", "exec sleep 60");
        appliance.openAndErase();
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
