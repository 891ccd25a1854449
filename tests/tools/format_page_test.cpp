#include "app/program_config.h"
#include "erase/postwipe_image.h"
#include "tests/tools/message_boxes.h"
#include "tools/format_page.h"
#include "tools/selected_drive.h"

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
        QCOMPARE(format("/bin/sh\necho %1; exit 3"), failed);
        QCOMPARE(format("/bin/sh\nkill -9 $$"), failed);
        QCOMPARE(format("/nonexistent"), failed);
        QCOMPARE(format("/bin/sh\ncp \"$2\" ${0%/*}/$#${1##*/}"),
                 QStringList({"?", "Format complete"}));
        const QImage image(library_.filePath("2none"));
        QCOMPARE(image, QImage(create_postwipe_image_file(sDrive, false, nullptr)));
        QVERIFY(!image.isNull());
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
        QCOMPARE(format("/bin/sh\nexec sleep 60"), QStringList{"?"});
        QTRY_VERIFY(!page_.findChild<QProcess*>());
        QCOMPARE(format("/bin/false"), QStringList({"?", "Format failed"})); // not interrupted
    }

    void startsNothing()
    {
        boxes_.answers = {QMessageBox::No};
        QCOMPARE(format("/bin/true"), QStringList{"?"});
        theProgramConfig().setLib("/nonexistent");
        QCOMPARE(format("/bin/true"), QStringList({"?", "Cannot create image file"}));
    }

private:
    // The boxes that a press of the page's button shows, with this interpreter and script.
    QStringList format(const QString& helper)
    {
        QFile file(library_.filePath("format"));
        file.open(QIODevice::WriteOnly);
        file.write("#!" + helper.toLatin1());
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        file.close();
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
