#include "app/display/dbg_window.h"
#include "app/display/system_command.h"
#include "tests/support/message_boxes.h"
#include "tests/support/script_and_log.h"

#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>

class DbgWindowTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // The file dialog keeps its last place in the user's settings.
        qputenv("XDG_CONFIG_HOME", home_.path().toLocal8Bit());
        dbg_init("string", 1);
    }

    void showsTheLogInOneWindow()
    {
        QWidget parent;
        dbg_ostream("Tag", 1) << ": caf\xe9" << Qt::endl;
        const QString log = dbg_string().sliced(0); // showing a window may log, too
        dbg_window(&parent);
        const QPointer<QWidget> window = parent.findChild<DbgWindow*>();
        dbg_ostream("Tag", 2) << ": not shown any more" << Qt::endl;
        dbg_window(&parent);
        QCOMPARE(parent.findChildren<DbgWindow*>().size(), 1);
        const auto* view = window->findChild<QPlainTextEdit*>();
        QCOMPARE(view->toPlainText(), log);
        const QStringList mono = QFontDatabase::families().filter("mono", Qt::CaseInsensitive);
        QCOMPARE(view->font().family(), mono.value(0, "monospace"));
        QVERIFY(!window->windowFlags().testFlag(Qt::WindowCloseButtonHint));
        window->findChild<QPushButton*>("closeButton")->click();
        QTRY_VERIFY(!window);
        dbg_init("/nonexistent/log", 1);
        const DbgWindow lost(nullptr);
        dbg_init("string", 1); // for the other tests
        QCOMPARE(lost.findChild<QPlainTextEdit*>()->toPlainText(), "dbg_type: stderr");
    }

    void savesTheLog()
    {
        QFile saved(home_.filePath("log.txt"));
        for (const auto& [path, expected] : std::initializer_list<std::pair<QString, QString>>{
                 {saved.fileName(), "none"},
                 {"/nonexistent/%2", "Cannot open /nonexistent/%2\n(No such file or directory)"},
                 {"/dev/full", "Cannot save /dev/full\n(No space left on device)"}}) {
            QWidget parent;
            MessageBoxes boxes;
            boxes.fileName = path;
            dbg_window(&parent);
            parent.findChild<QPushButton*>("saveButton")->click();
            QCOMPARE(boxes.proposed, QDir::homePath() + "/Debug Infomation.txt"); // spelled so
            QCOMPARE(boxes.shown.isEmpty() ? "none" : boxes.shown.constLast(), expected);
        }
        QVERIFY(saved.open(QFile::ReadOnly) && saved.readAll().startsWith("Tag(1): caf\u00e9\n"));
    }

    void logsWhatACommandPrints()
    {
        const QString command = write_script(home_.filePath("c"), "printf 'o\n\\0x'; printf e >&2");
        const auto start = dbg_string().size();
        run_command(qPrintable(command));
        run_command("/nonexistent");
        QCOMPARE(log_since(start).replace(command, "CMD"),
                 "System: CMD output: o\n\nSystem: CMD error: e\n"
                 "System: /nonexistent failed: execvp: No such file or directory\n");
    }

private:
    const QTemporaryDir home_;
};

QTEST_MAIN(DbgWindowTest)
#include "dbg_window_test.moc"
