#include "app/dbg_window.h"
#include "app/system_command.h"
#include "tests/app/test_support.h"

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

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
        dbg_window(&parent);
        QCOMPARE(parent.findChildren<DbgWindow*>().size(), 1);
        QCOMPARE(window->findChild<QPlainTextEdit*>()->toPlainText(), log);
        window->findChild<QPushButton*>("closeButton")->click();
        QTRY_VERIFY(!window);
        dbg_init("/nonexistent/log", 1);
        dbg_window(&parent);
        QCOMPARE(parent.findChild<QPlainTextEdit*>()->toPlainText(), "dbg_type: stderr");
        dbg_init("string", 1);
    }

    void savesTheLog()
    {
        QFile saved(home_.filePath("log.txt"));
        for (const auto& [path, expected] : std::initializer_list<std::pair<QString, QString>>{
                 {saved.fileName(), "none"},
                 {"/nonexistent/%2", "Cannot open /nonexistent/%2\n(No such file or directory)"},
                 {"/dev/full", "Cannot save /dev/full\n(No space left on device)"}}) {
            QWidget parent;
            QString warning = "none";
            QTimer closing;
            connect(&closing, &QTimer::timeout, this, [&] {
                if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                    warning = box->text();
                    box->buttons().constFirst()->click(); // also: replace the file
                }
            });
            closing.start(1);
            QTimer::singleShot(0, this, [&, &name = path] {
                QWidget* dialog = QApplication::activeModalWidget();
                dialog->findChild<QLineEdit*>("fileNameEdit")->setText(name);
                QMetaObject::invokeMethod(dialog, "accept");
            });
            dbg_window(&parent);
            parent.findChild<QPushButton*>("saveButton")->click();
            QCOMPARE(warning, expected);
        }
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QVERIFY(saved.readAll().startsWith("Tag(1): caf\u00e9\n"));
    }

    void logsWhatACommandPrints()
    {
        const QString command = write_script(home_.filePath("c"), "printf 'o\\0x'; printf e >&2");
        const auto start = dbg_string().size();
        run_command(qPrintable(command));
        QCOMPARE(log_since(start).join('\n').replace(command, "CMD"),
                 "System: CMD output: o\nSystem: CMD error: e\n");
        run_command("/nonexistent");
        QVERIFY(log_since(start).contains(
            "System: /nonexistent failed: execvp: No such file or directory"));
    }

private:
    const QTemporaryDir home_;
};

QTEST_MAIN(DbgWindowTest)
#include "dbg_window_test.moc"
