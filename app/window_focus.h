#pragma once

#include <QObject>

/// Gives the keyboard to every window that appears, and back to the one below when it goes.
/// That is a window manager's work, and the appliance has none. Install it on the
/// application as an event filter.
class WindowFocus : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    bool eventFilter(QObject* watched, QEvent* event) override;
};
