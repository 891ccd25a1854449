#pragma once

#include <QMainWindow>

#include <memory>

class Ui_MainWindow;
class WorkWidget;

/// The one top-level window: it frames the automatic screen with the product's name and the
/// restart and shutdown buttons, and holds the hidden program menu (Alt+Shift+M). It shows
/// itself and starts the discovery of drives.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    /// With `desktop` the window is frameless and as large as the screen, otherwise 800 by
    /// 600.
    MainWindow(QWidget* parent, bool desktop);
    ~MainWindow() override;

    /// Whether erasing shall only read; asked once, when erasing starts.
    [[nodiscard]] bool emulateErasing();

private slots:
    void showMenu();
    void showWizard();
    void showMounter();
    void showDebug();
    void saveScreenshot();
    void on_restartComputerButton_clicked();
    void on_shutdownComputerButton_clicked();

private:
    void showInWindow();
    void showOnWholeScreen();
    void fitToScreen();
    void waitUntilPainted();
    void connectActions();
    void addShortcut(const QKeySequence& keys, void (MainWindow::*slot)());

    std::unique_ptr<Ui_MainWindow> ui;
    WorkWidget* workWidget_ = nullptr;
};
