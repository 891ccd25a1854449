#pragma once

#include <QWidget>

#include <memory>

class Ui_DbgWindow;

/// Shows the log as it was when the window opened, and saves it. It shows itself and
/// deletes itself when closed; open it with dbg_window().
class DbgWindow : public QWidget {
    Q_OBJECT

public:
    explicit DbgWindow(QWidget* parent);
    ~DbgWindow() override;

private slots:
    void on_saveButton_clicked();
    void on_closeButton_clicked();

private:
    void showLog();
    void centre();

    std::unique_ptr<Ui_DbgWindow> ui;
};

/// Opens the debug window, centred on its parent or on the screen. While one is open
/// nothing happens.
void dbg_window(QWidget* parent);
