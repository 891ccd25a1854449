#include "app/window_focus.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>

namespace {

bool takes_focus(const QWidget& window)
{
    const Qt::WindowType type = window.windowType();
    return type == Qt::Window || type == Qt::Dialog || type == Qt::Sheet;
}

QWidget* lowest_visible_window()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        if (window->isVisible() && takes_focus(*window) && window->parentWidget() == nullptr) {
            return window;
        }
    }
    return nullptr;
}

// The window that the user goes on with when another one has gone.
QWidget* next_window(const QWidget* parent)
{
    if (QWidget* modal = QApplication::activeModalWidget()) {
        return modal;
    }
    if (parent != nullptr && parent->window()->isVisible()) {
        return parent->window();
    }
    return lowest_visible_window();
}

} // namespace

bool WindowFocus::eventFilter(QObject* watched, QEvent* event)
{
    auto* window = qobject_cast<QWidget*>(watched);
    if (window == nullptr || !window->isWindow() || !takes_focus(*window)) {
        return false;
    }
    if (event->type() == QEvent::Show) {
        window->activateWindow();
    } else if (event->type() == QEvent::Hide) {
        if (QWidget* next = next_window(window->parentWidget())) {
            next->activateWindow();
        }
    }
    return false;
}
