#pragma once

#include <QString>
#include <QTimer>
#include <QWidget>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

class Drive;
class MainWindow;
class QProgressBar;
class QTreeWidgetItem;
class Ui_WorkWidget;

/// The automatic screen: it discovers the drives, counts down, and runs one worker per
/// drive, showing each as a row. One timer of one second drives both the discovery and the
/// countdown.
class WorkWidget : public QWidget {
    Q_OBJECT

public:
    class Worker;
    class WorkerDisabled;
    class WorkerWipeAndFormat;

    enum State { Idle = 0, Initializing = 1, CountingDown = 2, Erasing = 3 };

    /// Builds the screen and starts nothing. `mainWindow` may be null.
    explicit WorkWidget(MainWindow* mainWindow);
    ~WorkWidget() override;

    /// The parent of the workers' message boxes; may be null.
    [[nodiscard]] QWidget* window();

    /// The caption of every message box; null without a main window.
    [[nodiscard]] QString windowTitle();

    /// Starts, or restarts, the discovery.
    void initStart();
    /// One poll of the drive list; the rows are rebuilt when it changed.
    void initDrivesUpdate();
    /// Ends the discovery: the countdown begins when there are drives.
    void initStop();

    void countdownStart();
    void countdownStop();
    /// Asks, then stops every running worker.
    void eraseStop();
    /// Shows "Complete." when no worker is running.
    void checkWorkers();
    /// Calls it later, in a turn of the event loop of its own: what takes a while for one drive
    /// would stall the screen for many that end together. The calls keep their order.
    void queueCall(std::function<void()> call);

private slots:
    void on_restartInitializationButton_clicked();
    void on_stopButton_clicked();
    void initTimeout();
    void countdownTimeout();

private:
    void showStopButton();
    void showRestartButton();
    void hideButtons();
    void keepButtonRow();
    void showInformation(const char* color, const QString& text);
    void restartTimer(void (WorkWidget::*slot)());
    void clearDrives();
    QProgressBar* addRow(const Drive& drive);
    void createWipeWorkers();
    void eraseStart();
    void runNextCall();

    std::unique_ptr<Ui_WorkWidget> ui;
    MainWindow* mainWindow_;
    State state_ = Idle;
    QTimer timer_;
    int initCounter_ = 0;
    int initFindMoreDrivesTimeout_ = 0;
    QString drivesString_;
    int countdownCounter_ = 0;
    std::vector<std::shared_ptr<Worker>> workers_;
    QTimer callTimer_; // without delay
    std::deque<std::function<void()>> queuedCalls_;
};
