#include "tests/support/appliance.h"
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

class MainWindowTest : public ApplianceTest {
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
};

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
