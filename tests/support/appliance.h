#pragma once

#include "app/window/main_window.h"
#include "app/window/window_minder.h"
#include "tests/support/bus_test.h"

#include <QAction>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QTreeWidget>

#include <functional>

/// The main window over a fake disk service and over helper programs that are shell scripts,
/// without its clock's help: a test calls the ticks itself and so needs no seconds.
///
/// Message boxes are answered as they appear and remembered as "parent icon: text".
class Appliance {
public:
    explicit Appliance(const QList<FakeDevice>& devices);

    /// Opens the window, which makes the first poll.
    void open(bool desktop = false) { window = std::make_unique<MainWindow>(nullptr, desktop); }
    /// Opens the window and goes on to the moment when all helpers have been started.
    void openAndErase(bool emulate = false);
    /// The same with a `driver` of this shell text.
    void eraseWith(const QByteArray& driver);
    /// Calls one of the work screen's slots.
    void tick(const char* slot) { QMetaObject::invokeMethod(find<QWidget>("WorkWidget"), slot); }
    void clickStop() const { find<QPushButton>("stopButton")->click(); }

    template <typename T>
    [[nodiscard]] T* find(const char* name) const
    {
        return window->findChild<T*>(name);
    }
    /// The information line and what is offered: "colour: text", then "[stop]" or "[restart]".
    [[nodiscard]] QString information() const;
    [[nodiscard]] QProgressBar* bar(int row) const;
    /// The rows' bars, each as "format value", with " | " between them.
    [[nodiscard]] QString statuses() const;

    /// Makes a helper of this shell text, which may use `wait_for_go`; none of a null text.
    void setHelper(const QString& name, const QByteArray& shellText);
    /// Lets helpers go on that wait.
    void go() const { QDir(records_.path()).mkdir("go"); }
    /// How helpers were called, sorted, with IMAGE in place of the picture's path.
    [[nodiscard]] QStringList calls() const;
    /// The picture given to `format` for a drive.
    [[nodiscard]] QImage image(const QString& drive) const;
    /// How many of the helpers ever started still run.
    [[nodiscard]] qsizetype runningHelpers() const;

    QTemporaryDir library;
    FakeDiskService service;
    QStringList boxes;
    /// Called as soon as a box opens, before anything that waits for its turn, and then again and
    /// again while it is open; NoButton leaves it open.
    std::function<QMessageBox::StandardButton(const QString& box)> answer;
    std::unique_ptr<MainWindow> window;

private:
    void answerBox();
    [[nodiscard]] QStringList recorded(const char* fileName) const;

    /// Sees boxes open.
    struct BoxWatcher : QObject {
        bool eventFilter(QObject* watched, QEvent* event) override;
        Appliance* appliance = nullptr;
    };

    QTemporaryDir records_;
    QTimer boxTimer_;
    BoxWatcher boxWatcher_;
    WindowMinder windowMinder_;
};
