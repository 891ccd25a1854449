#include "app/debug_log.h"
#include "tests/diskservice/private_bus.h"
#include "tests/work/appliance.h"
#include "work/work_widget.h"

#include <QApplication>
#include <QFileDialog>
#include <QImage>
#include <QLayout>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QTest>

namespace {

// One line for each action of the menu, "-" for a separator.
QString menu_text(const QMenu& menu)
{
    QStringList lines;
    for (const QAction* action : menu.actions()) {
        lines << (action->isSeparator()
                      ? QStringLiteral("-")
                      : action->objectName() + QStringLiteral(": ") + action->text() +
                            QLatin1Char(' ') + action->shortcut().toString());
    }
    return lines.join(u'\n');
}

QWidgetList debug_windows()
{
    QWidgetList windows = QApplication::topLevelWidgets();
    windows.removeIf([](const QWidget* window) {
        return window->objectName() != QLatin1String("DbgWindow") || !window->isVisible();
    });
    return windows;
}

} // namespace

class MainWindowTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void showsItselfInAWindow();
    void showsItselfOnTheWholeScreen();
    void namesItsParts_data();
    void namesItsParts();
    void opensTheMenuByKey();
    void opensTheDebugWindowByKey();
    void savesAScreenshot_data();
    void savesAScreenshot();

private:
    PrivateBus bus_;
};

void MainWindowTest::initTestCase()
{
    dbg_init(DBG_TYPE_STRING, 1);
    QVERIFY(bus_.startAsSystemBus());
}

void MainWindowTest::showsItselfInAWindow()
{
    Appliance appliance(bus_.address(), {});
    appliance.open();
    const MainWindow& window = *appliance.window;
    QVERIFY(window.isVisible());
    QCOMPARE(window.size(), QSize(800, 600));
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QVERIFY(!window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QVERIFY(!window.menuBar()->isVisible());
    auto* content = appliance.find<QWidget>("contentWidget");
    QCOMPARE(content->layout()->indexOf(appliance.work), 0);
    QTRY_VERIFY(appliance.work->isVisible());
}

void MainWindowTest::showsItselfOnTheWholeScreen()
{
    Appliance appliance(bus_.address(), {});
    appliance.open(true);
    const MainWindow& window = *appliance.window;
    QVERIFY(window.isVisible());
    QVERIFY(window.windowFlags().testFlag(Qt::FramelessWindowHint));
    QCOMPARE(window.geometry(), QGuiApplication::primaryScreen()->geometry());
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QVERIFY(!window.menuBar()->isVisible());
}

void MainWindowTest::namesItsParts_data()
{
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");

    const auto row = [](const char* object, const char* property, const QVariant& value) {
        QTest::newRow(object) << QByteArray(property) << value;
    };
    row("MainWindow", "windowTitle", "VantrellePlus");
    row("centralWidget", "styleSheet",
        "QWidget#centralWidget { background: url(:headerBackground.png); }");
    row("mainWidget", "maximumSize", QSize(640, 420));
    row("contentWidget", "styleSheet",
        "QWidget#contentWidget {\n  background: rgba(255,255,255,160);\n"
        "  border: 1px solid rgb(200,200,200);\n}");
    row("appIconLabel", "minimumSize", QSize(128, 128));
    row("appTitleLabel", "text", "Vantrelle<font color=#0a6ac6>Plus</font>");
    row("restartComputerButton", "text", "&Restart Computer");
    row("shutdownComputerButton", "text", "&Shutdown Computer");
    row("menu", "title", "Program Menu");
    row("actionEmulateErasing", "checkable", true);
    row("restartInitializationButton", "text", "Restart &Initialization");
    row("stopButton", "text", "S&top");
}

void MainWindowTest::namesItsParts()
{
    QFETCH(QByteArray, property);
    Appliance appliance(bus_.address(), {});
    appliance.open();
    const QString name = QString::fromUtf8(QTest::currentDataTag());
    const auto* object = name == appliance.window->objectName()
                             ? appliance.window.get()
                             : appliance.window->findChild<QObject*>(name);
    QVERIFY(object != nullptr);
    QTEST(object->property(property.constData()), "value");
}

void MainWindowTest::opensTheMenuByKey()
{
    Appliance appliance(bus_.address(), {});
    appliance.open();
    QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
    QTest::keyClick(appliance.window.get(), Qt::Key_M, Qt::AltModifier | Qt::ShiftModifier);
    auto* menu = appliance.find<QMenu>("menu");
    QVERIFY(menu->isVisible());
    QCOMPARE(menu->activeAction(), appliance.find<QAction>("actionWizard"));
    QCOMPARE(menu->pos(), appliance.window->mapToGlobal(QPoint(0, 0)));
    QCOMPARE(menu_text(*menu), QStringLiteral(R"(actionWizard: &Wizard 
actionMounter: &Mounter 
actionEmulateErasing: &Emulate Erasing (safe testing) 
-
actionDebugInformation: Debug Information Alt+Shift+D
actionSaveScreenshot: Save Screenshot Alt+Shift+S
-
actionRestartComputer: &Restart Computer 
actionShutdownComputer: &Shutdown Computer 
-
actionQuit: &Quit )"));
    QVERIFY(!appliance.window->emulateErasing());
    menu->close();
    appliance.find<QAction>("actionEmulateErasing")->trigger();
    QVERIFY(appliance.window->emulateErasing());
}

void MainWindowTest::opensTheDebugWindowByKey()
{
    Appliance appliance(bus_.address(), {});
    appliance.open();
    QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
    QTest::keyClick(appliance.window.get(), Qt::Key_D, Qt::AltModifier | Qt::ShiftModifier);
    QCOMPARE(debug_windows().size(), 1);
    const QPointer<QWidget> debugWindow = debug_windows().constFirst();
    QTRY_COMPARE(QApplication::activeWindow(), debugWindow);
    QTest::keyClick(debugWindow, Qt::Key_D, Qt::AltModifier | Qt::ShiftModifier);
    QCOMPARE(debug_windows().size(), 1);
    QTest::keyClick(debugWindow, Qt::Key_M, Qt::AltModifier | Qt::ShiftModifier);
    QVERIFY(appliance.find<QMenu>("menu")->isVisible());
    appliance.find<QMenu>("menu")->close();
    debugWindow->close();
    QTRY_VERIFY(debugWindow.isNull());
    appliance.find<QAction>("actionDebugInformation")->trigger();
    QCOMPARE(debug_windows().size(), 1);
}

void MainWindowTest::savesAScreenshot_data()
{
    QTest::addColumn<QString>("fileName"); // empty: the dialog is cancelled
    QTest::addColumn<bool>("isSaved");

    QTest::newRow("a picture") << "Screen.png" << true;
    QTest::newRow("a kind of picture that nobody knows") << "Screen.odd" << false;
    QTest::newRow("cancelled") << QString() << false;
}

void MainWindowTest::savesAScreenshot()
{
    QFETCH(QString, fileName);
    QFETCH(bool, isSaved);
    Appliance appliance(bus_.address(), {});
    appliance.open();
    const QString path = appliance.library.filePath(fileName);
    QString asked;
    QVERIFY(QTest::qWaitForWindowActive(appliance.window.get()));
    QTimer dialogTimer;
    connect(&dialogTimer, &QTimer::timeout, this, [&] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (dialog == nullptr || dialog->parent() != appliance.window.get()) {
            return;
        }
        asked = dialog->windowTitle() + QLatin1Char('|') + dialog->selectedFiles().value(0) +
                QLatin1Char('|') + dialog->nameFilters().join(QStringLiteral(";;"));
        dialog->selectFile(path);
        auto* choice = static_cast<QDialog*>(dialog);
        fileName.isEmpty() ? choice->reject() : choice->accept();
    });
    dialogTimer.start(5);
    QTest::keyClick(appliance.window.get(), Qt::Key_S, Qt::AltModifier | Qt::ShiftModifier);
    QCOMPARE(asked, QStringLiteral("Save Screenshot|%1/Screenshot.png|PNG Files (*.png);;"
                                   "All Files (*.*)")
                        .arg(QDir::homePath()));
    if (isSaved) {
        QCOMPARE(QImage(path).size(), QGuiApplication::primaryScreen()->geometry().size());
    }
    const bool isFailure = !isSaved && !fileName.isEmpty();
    QCOMPARE(appliance.boxes,
             isFailure ? QStringList{QStringLiteral("MainWindow failure: Cannot save ") + path}
                       : QStringList{});
}

QTEST_MAIN(MainWindowTest)
#include "main_window_test.moc"
