#include "tests/support/appliance.h"
#include "tests/support/script_and_log.h"
#include "tools/selected_drive.h"

#include <QApplication>
#include <QFileDialog>
#include <QImage>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QWizard>

namespace {

void press_keys(QWidget* window, Qt::Key key)
{
    QTest::keyClick(window, key, Qt::AltModifier | Qt::ShiftModifier);
}

} // namespace

class MainWindowTest : public BusTest {
    Q_OBJECT

private slots:
    void showsItself()
    {
        for (const bool desktop : {false, true}) {
            Appliance appliance({});
            appliance.open(desktop);
            const QSize screen = QGuiApplication::primaryScreen()->geometry().size();
            QCOMPARE(appliance.window->size(), desktop ? screen : QSize(800, 600));
            QCOMPARE(appliance.window->minimumSize(), appliance.window->maximumSize());
            QCOMPARE(appliance.window->windowFlags().testFlag(Qt::FramelessWindowHint), desktop);
            QVERIFY(appliance.window->isVisible() && !appliance.window->menuBar()->isVisible());
            QString texts = appliance.window->windowTitle();
            for (const auto* button : appliance.window->findChildren<QPushButton*>()) {
                texts += '|' + button->text();
            }
            QCOMPARE(texts, "VantrellePlus|&Restart Computer|&Shutdown Computer|"
                            "Restart &Initialization|S&top");
        }
        QVERIFY(!QImage(":/background.png").isNull()); // for style sheets
    }

    void opensTheMenuByKey()
    {
        Appliance appliance({});
        appliance.open();
        QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
        press_keys(appliance.window.get(), Qt::Key_M);
        auto* menu = appliance.find<QMenu>("menu");
        QVERIFY(menu->isVisible());
        QCOMPARE(menu->activeAction(), appliance.find<QAction>("actionWizard"));
        QString text;
        for (const QAction* action : menu->actions()) { // separators have neither
            text += action->text() + '|' + action->shortcut().toString() + '\n';
        }
        QCOMPARE(text, R"(&Wizard|
&Mounter|
&Emulate Erasing (safe testing)|
|
Debug Information|Alt+Shift+D
Save Screenshot|Alt+Shift+S
|
&Restart Computer|
&Shutdown Computer|
|
&Quit|
)");
        menu->close();
        press_keys(appliance.window.get(), Qt::Key_D);
        auto* debugWindow = appliance.find<QWidget>("DbgWindow");
        QTRY_COMPARE(QApplication::activeWindow(), debugWindow);
        press_keys(debugWindow, Qt::Key_M);
        QVERIFY(menu->isVisible());
    }

    // Where a script of ours stands in the place of both commands, which are links to one program.
    void restartsAndShutsDown()
    {
        const QString command = QFileInfo("/sbin/reboot").canonicalFilePath();
        const QString other = QFileInfo("/sbin/poweroff").canonicalFilePath();
        if (command.isEmpty() || command != other) {
            QSKIP("there is no /sbin/reboot that is one program with /sbin/poweroff");
        }
        if (!qEnvironmentVariableIsSet("SHIELDED")) {
            runShielded(command);
            return;
        }
        QFile script(command);
        QVERIFY(script.open(QIODevice::ReadOnly) && script.readAll().startsWith("#!/bin/sh\necho"));
        Appliance appliance({});
        appliance.open();
        const qsizetype start = dbg_string().size();
        appliance.find<QPushButton>("restartComputerButton")->click();
        appliance.find<QPushButton>("shutdownComputerButton")->click();
        appliance.find<QAction>("actionShutdownComputer")->trigger();
        appliance.find<QAction>("actionRestartComputer")->trigger();
        QString log = dbg_string().mid(start);
        log.remove(QRegularExpression("System\\(\\d+\\): /sbin/\\w+ output: "));
        QCOMPARE(log.split('\n', Qt::SkipEmptyParts),
                 QStringList({"/sbin/reboot", "/sbin/poweroff", "/sbin/poweroff", "/sbin/reboot"}));
    }

    void opensItsToolsAgainAndAgain()
    {
        Appliance appliance({});
        appliance.open();
        for (const char* tool : {"Wizard", "Mounter", "Wizard", "Mounter"}) {
            appliance.find<QAction>(QByteArray("action") + tool)->trigger();
        }
        appliance.find<QDialog>("Mounter")->close(); // which hides it
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(appliance.window->findChildren<QDialog*>().size(), 4);
    }

    void emulatesNoManualTool()
    {
        Appliance appliance({});
        appliance.open();
        appliance.find<QAction>("actionEmulateErasing")->setChecked(true);
        appliance.find<QAction>("actionWizard")->trigger();
        sDrive.setDevice("/dev/none");
        appliance.answer = [](const QString& box) {
            return box.contains("overwritten") ? QMessageBox::Yes : QMessageBox::Ok;
        };
        appliance.window->findChild<QWizard*>()->page(3)->findChild<QPushButton*>()->click();
        QCOMPARE(appliance.calls(), QStringList{"format /dev/none IMAGE"});
    }

    void savesAScreenshot()
    {
        Appliance appliance({});
        appliance.open();
        QFile::link("/dev/full", appliance.library.filePath("full.png"));
        for (const QString name : {"screen.odd", "full.png", "screen.png"}) {
            const QString path = appliance.library.filePath(name);
            QString suggested;
            QTimer dialogTimer;
            connect(&dialogTimer, &QTimer::timeout, this, [&] {
                if (auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget())) {
                    suggested = dialog->selectedFiles().value(0);
                    dialog->selectFile(path);
                    dialog->QDialog::accept();
                }
            });
            dialogTimer.start(5);
            QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
            press_keys(appliance.window.get(), Qt::Key_S);
            QCOMPARE(suggested, QDir::homePath() + "/Screenshot.png");
            QCOMPARE(QImage(path).isNull(), name != "screen.png");
        }
        const QString failure = "MainWindow failure: Cannot save " + appliance.library.path();
        QCOMPARE(appliance.boxes, QStringList({failure + "/screen.odd", failure + "/full.png"}));
    }

private:
    // Runs the test above in a mount namespace of its own (unshare(1)).
    static void runShielded(const QString& command)
    {
        const QTemporaryDir directory;
        const QString script = write_script(directory.filePath("command"), "echo $0");
        const QString mount = "mount --bind " + script + ' ' + command;
        QStringList unshare{"--mount", "--map-root-user", "sh", "-c", mount};
        if (QProcess::execute("unshare", unshare) != 0) {
            QSKIP("the commands cannot be replaced: unshare or mount is not allowed");
        }
        unshare.last() += " && SHIELDED=1 exec " + QCoreApplication::applicationFilePath() +
                          " restartsAndShutsDown";
        QCOMPARE(QProcess::execute("unshare", unshare), 0);
    }
};

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
