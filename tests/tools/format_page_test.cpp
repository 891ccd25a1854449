#include "app/debug_log.h"
#include "app/program_config.h"
#include "erase/postwipe_image.h"
#include "tests/tools/message_boxes.h"
#include "tools/format_page.h"
#include "tools/selected_drive.h"

#include <QProgressDialog>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

namespace {

const char* const kComplete = "Information Format Drive: Format complete";
const char* const kFailed = "Critical Format Drive: Format failed";

} // namespace

class FormatPageTest : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        dbg_init(DBG_TYPE_STRING, 1);
        logStart_ = dbg_string().size();
        theProgramConfig().setLib(library_.path().toStdString());
        sDrive.setDevice("/dev/none");
        boxes_.shown.clear();
    }

    void reportsTheEnd_data()
    {
        QTest::addColumn<QString>("helper");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("log"); // behind the start
        QTest::newRow("success") << "echo $# $*" << kComplete
                                 << "stdout: 2 /dev/none IMAGE\nfinish: exitCode: 0; exitStatus: 0";
        QTest::newRow("a failure and an empty line")
            << "printf 'no %%1\\n\\n' >&2; exit 3" << kFailed
            << "stderr: no %1\n\nfinish: exitCode: 3; exitStatus: 0";
        QTest::newRow("a crash") << "kill -9 $$" << kFailed << "finish: exitCode: 9; exitStatus: 1";
        QTest::newRow("a zero byte") << "printf 'a\\000b\\n'" << kComplete
                                     << "stdout: a\nfinish: exitCode: 0; exitStatus: 0";
    }

    void reportsTheEnd()
    {
        QFETCH(QString, helper);
        QFETCH(QString, box);
        QFETCH(QString, log);
        format("cp \"$2\" ${0%/*}/copy; " + helper);
        QCOMPARE(boxes_.shown, QStringList({"?", box}));
        QCOMPARE(logged(), "start: LIB/format /dev/none IMAGE\n" + log + '\n');
        const QImage image(library_.filePath("copy"));
        QCOMPARE(image, QImage(create_postwipe_image_file(sDrive, false, nullptr)));
        QVERIFY(!image.isNull());
    }

    void endsSilentlyWhenInterrupted()
    {
        QTimer turns;
        turns.callOnTimeout([this] {
            if (logged().endsWith("stdout: up\n")) {
                page_.findChild<QProgressDialog*>()->findChild<QPushButton*>()->click();
            }
        });
        turns.start(1);
        format("echo up; exec sleep 60");
        QTRY_VERIFY(logged().endsWith("\nkill\nfinish: exitCode: 9; exitStatus: 1\n"));
        format("exit 4"); // an earlier interrupt does not hide a failure
        QCOMPARE(boxes_.shown, QStringList({"?", "?", kFailed}));
    }

    void startsNothing()
    {
        boxes_.answers = {QMessageBox::No};
        format("");
        QCOMPARE(logged(), "");
        theProgramConfig().setLib("/nonexistent");
        format("");
        QCOMPARE(logged(), "");
        theProgramConfig().setLib(library_.path().toStdString());
        format({}); // there is no helper
        QCOMPARE(logged().count('\n'), 2);
        QCOMPARE(boxes_.shown,
                 QStringList(
                     {"?", "?", "Critical Format Drive: Cannot create image file", "?", kFailed}));
    }

private:
    // Presses the page's button and waits for the end of its dialogs.
    void format(const QString& shellText)
    {
        QFile file(library_.filePath("format"));
        file.remove();
        if (!shellText.isNull() && file.open(QIODevice::WriteOnly)) {
            file.write("#!/bin/sh\n" + shellText.toLatin1());
            file.setPermissions(QFile::ReadOwner | QFile::ExeOwner);
            file.close();
        }
        page_.findChild<QPushButton*>()->click();
    }

    // Since the test's start, with LIB and IMAGE for the directory and the picture in it.
    QString logged()
    {
        static const QRegularExpression other("\\[Warning\\].*\\n|Format\\(\\d+\\): ");
        static const QRegularExpression image("LIB/\\w{6}\\.png");
        QString log = dbg_string().mid(logStart_).remove(other);
        return log.replace(library_.path(), "LIB").replace(image, "IMAGE");
    }

    QTemporaryDir library_;
    FormatPage page_{nullptr};
    MessageBoxes boxes_;
    qsizetype logStart_ = 0;
};

QTEST_MAIN(FormatPageTest)
#include "format_page_test.moc"
