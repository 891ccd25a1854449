#include "app/base/program_config.h"
#include "erase/post_wipe.h"
#include "tests/support/message_boxes.h"
#include "tests/support/script_and_log.h"
#include "tools/format_page.h"
#include "tools/selected_drive.h"

#include <QLabel>
#include <QProcess>
#include <QProgressDialog>
#include <QTemporaryDir>
#include <QTest>

class FormatPageTest : public QObject {
    Q_OBJECT

private slots:
    void reportsTheEnd()
    {
        sDrive.setDevice("/dev/none");
        theProgramConfig().setLib(library_.path().toStdString());
        const QStringList failed{"?", "Format failed"};
        dbg_init("string", 1);
        QCOMPARE(format("printf '%%1\\nb\\n'; exit 3"), failed);
        QVERIFY(log_since(0).contains("Format: stdout: %1\nb\n"
                                      "Format: finish: exitCode: 3; exitStatus: 0\n"));
        QCOMPARE(format("kill -9 $$"), failed);
        QCOMPARE(format({}), failed);
        QCOMPARE(format("cp \"$2\" ${0%/*}/$#${1##*/}"), QStringList({"?", "Format complete"}));
        const QImage image(library_.filePath("2none"));
        QCOMPARE(image, QImage(create_postwipe_image_file(sDrive, false, nullptr)));
        QVERIFY(!image.isNull());
        QVERIFY(page_.findChildren<QLabel*>().constLast()->text().contains(
            "format all drive as a bootable FAT32 partition\nwith VantrellePlus logo screen. Later "
            "this partition can be used as a file storage."));
    }

    void endsSilentlyWhenInterrupted()
    {
        QTimer turns;
        turns.callOnTimeout([&] {
            if (auto* dialog = page_.findChild<QProgressDialog*>()) {
                turns.stop();
                dialog->findChild<QPushButton*>()->click();
            }
        });
        turns.start(1);
        QCOMPARE(format("exec sleep 60"), QStringList{"?"});
        QTRY_VERIFY(!page_.findChild<QProcess*>());
        QCOMPARE(format("exit 1"), QStringList({"?", "Format failed"})); // not interrupted
    }

    void startsNothing()
    {
        boxes_.answers = {QMessageBox::No};
        QCOMPARE(format("exit 0"), QStringList{"?"});
        theProgramConfig().setLib("/nonexistent");
        QCOMPARE(format("exit 0"), QStringList({"?", "Cannot create image file"}));
    }

private:
    // The boxes that a press of the page's button shows, with this script; none when empty.
    QStringList format(const QByteArray& helper)
    {
        const QString script = write_script(library_.filePath("format"), helper);
        if (helper.isEmpty()) {
            QFile::remove(script);
        }
        boxes_.shown.clear();
        page_.findChild<QPushButton*>()->click();
        return boxes_.shown;
    }

    QTemporaryDir library_;
    FormatPage page_{nullptr};
    MessageBoxes boxes_;
};

QTEST_MAIN(FormatPageTest)
#include "format_page_test.moc"
