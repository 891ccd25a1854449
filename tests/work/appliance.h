#pragma once

#include "app/main_window.h"
#include "app/window_focus.h"
#include "tests/storage/fake_disk_service.h"

#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>
#include <QTreeWidget>

#include <functional>
#include <memory>

class WorkWidget;

/// The main window over a fake disk service and over helper programs that are shell scripts,
/// without its clock's help: a test calls the ticks itself and so needs no seconds.
///
/// Message boxes are answered as they appear and remembered as "parent icon: text".
class Appliance {
public:
    Appliance(const QString& busAddress, const QList<FakeDevice>& devices);

    /// Opens the window, which makes the first poll.
    void open(bool desktop = false);
    /// Opens the window and goes on to the moment when all helpers have been started.
    void openAndErase(bool emulate = false);
    /// Calls one of the work screen's slots.
    void tick(const char* slot);

    template <typename T>
    [[nodiscard]] T* find(const char* name) const
    {
        return window->findChild<T*>(QLatin1String(name));
    }
    /// The information line as "colour: text".
    [[nodiscard]] QString information() const;
    /// "stop", "restart" or "" for what is offered.
    [[nodiscard]] QString offered() const;
    [[nodiscard]] QProgressBar* bar(int row) const;
    /// A row's bar as "format value".
    [[nodiscard]] QString status(int row) const;

    /// Makes a helper of this shell text, which may use $here, a directory of its own.
    void setHelper(const char* name, const char* shellText);
    /// How helpers were called, sorted, with IMAGE in place of a picture in the library
    /// directory.
    [[nodiscard]] QStringList calls() const;
    /// The picture given to `format` for a drive.
    [[nodiscard]] QImage image(const char* drive) const;
    /// How many of the helpers ever started still run.
    [[nodiscard]] int runningHelpers() const;
    [[nodiscard]] QString here(const char* fileName) const;
    void touch(const char* fileName) const;

    QTemporaryDir library;
    FakeDiskService service;
    QStringList boxes;
    /// Called again and again while a box is open; NoButton leaves it open. Without it Yes or
    /// OK is pressed at once.
    std::function<QMessageBox::StandardButton(const QString& box)> answer;
    std::unique_ptr<MainWindow> window;
    WorkWidget* work = nullptr;

private:
    void answerBox();
    [[nodiscard]] QStringList recorded(const char* fileName) const;

    QTemporaryDir records_;
    QTimer boxTimer_;
    WindowFocus windowFocus_;
};
