#include "app/window/main_window.h"

#include "app/base/program_config.h"
#include "app/display/dbg_window.h"
#include "app/display/image_file.h"
#include "app/display/message_box.h"
#include "app/display/system_command.h"
#include "tools/mounter.h"
#include "tools/wizard.h"
#include "ui_main_window.h"
#include "work/work_widget.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <QWindow>

namespace {

constexpr QSize kWindowSize(800, 600);

// How long the first painting may hold up the discovery: a covered window is never painted.
constexpr int kPaintPatienceMs = 500;

} // namespace

MainWindow::MainWindow(QWidget* parent, bool desktop)
    : QMainWindow(parent, desktop ? Qt::FramelessWindowHint : Qt::WindowFlags()),
      ui(std::make_unique<Ui_MainWindow>())
{
    ui->setupUi(this);
    setWindowTitle(QString::fromLatin1(theProgramConfig().name()));
    ui->appTitleLabel->setText(QString::fromLatin1(theProgramConfig().nameHtml()));
    if (desktop) {
        showOnWholeScreen();
    } else {
        showInWindow();
    }
    ui->menuBar->hide();
    connectActions();
    // The actions' own shortcuts do not work while the menu bar is hidden.
    addShortcut(QKeySequence(QStringLiteral("Alt+Shift+M")), &MainWindow::showMenu);
    addShortcut(ui->actionDebugInformation->shortcut(), &MainWindow::showDebug);
    addShortcut(ui->actionSaveScreenshot->shortcut(), &MainWindow::saveScreenshot);
    workWidget_ = new WorkWidget(this);
    ui->widgetLayout->addWidget(workWidget_);
    waitUntilPainted();
    workWidget_->initStart();
}

MainWindow::~MainWindow() = default;

bool MainWindow::emulateErasing()
{
    return ui->actionEmulateErasing->isChecked();
}

void MainWindow::showInWindow()
{
    setFixedSize(kWindowSize);
    show();
}

void MainWindow::showOnWholeScreen()
{
    fitToScreen();
    connect(QGuiApplication::primaryScreen(), &QScreen::geometryChanged, this,
            &MainWindow::fitToScreen);
    showMaximized();
}

// Without a window manager nobody else moves or sizes the window.
void MainWindow::fitToScreen()
{
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    setFixedSize(screen.size());
    setGeometry(screen);
}

// Discovery begins with questions to the disk service, which block: a slow one must not leave
// the screen black. What the user presses meanwhile waits for the event loop.
void MainWindow::waitUntilPainted()
{
    QTimer patience;
    patience.setSingleShot(true);
    patience.start(kPaintPatienceMs);
    while (!windowHandle()->isExposed() && patience.isActive()) {
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents |
                                        QEventLoop::WaitForMoreEvents);
    }
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents); // sends the picture
}

void MainWindow::connectActions()
{
    connect(ui->actionWizard, &QAction::triggered, this, &MainWindow::showWizard);
    connect(ui->actionMounter, &QAction::triggered, this, &MainWindow::showMounter);
    connect(ui->actionDebugInformation, &QAction::triggered, this, &MainWindow::showDebug);
    connect(ui->actionSaveScreenshot, &QAction::triggered, this, &MainWindow::saveScreenshot);
    connect(ui->actionRestartComputer, &QAction::triggered, this,
            &MainWindow::on_restartComputerButton_clicked);
    connect(ui->actionShutdownComputer, &QAction::triggered, this,
            &MainWindow::on_shutdownComputerButton_clicked);
    connect(ui->actionQuit, &QAction::triggered, qApp, &QApplication::quit);
}

void MainWindow::addShortcut(const QKeySequence& keys, void (MainWindow::*slot)())
{
    auto* shortcut = new QShortcut(keys, this);
    shortcut->setContext(Qt::ApplicationShortcut);
    connect(shortcut, &QShortcut::activated, this, slot);
}

void MainWindow::showMenu()
{
    ui->menu->setActiveAction(ui->actionWizard);
    ui->menu->popup(mapToGlobal(QPoint(0, 0)));
}

void MainWindow::showWizard()
{
    (new Wizard(this))->show();
}

void MainWindow::showMounter()
{
    (new Mounter(this))->show();
}

void MainWindow::showDebug()
{
    dbg_window(this);
}

void MainWindow::saveScreenshot()
{
    QCoreApplication::processEvents(); // so that the closed menu is gone from the screen
    const QImage picture = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
    const QString fileName = QFileDialog::getSaveFileName(this, tr("Save Screenshot"),
                                                          QDir::homePath() + QDir::separator() +
                                                              QLatin1String("Screenshot.png"),
                                                          tr("PNG Files (*.png);;All Files (*.*)"));
    if (fileName.isEmpty()) {
        return;
    }
    if (!save_image_file(picture, fileName, QFileInfo(fileName).suffix())) {
        message_box::show(this, QMessageBox::Critical, windowTitle(),
                          tr("Cannot save %1").arg(fileName));
    }
}

// Asks nothing: see "Who asks and who does not" in docs/odd-on-purpose.md.
void MainWindow::on_restartComputerButton_clicked()
{
    system_reboot();
}

void MainWindow::on_shutdownComputerButton_clicked()
{
    system_halt();
}
