#pragma once

#include <QObject>

/// Does for the program's windows what a window manager would do, as the appliance has none:
/// it gives the keyboard to every window that appears, and back to the one below when it
/// goes, and it draws a frame around windows that stand on another one. Install it on the
/// application as an event filter.
class WindowMinder : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    bool eventFilter(QObject* watched, QEvent* event) override;
};
