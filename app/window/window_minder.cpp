#include "app/window/window_minder.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QWidget>

namespace {

bool takes_focus(const QWidget& window)
{
    const Qt::WindowType type = window.windowType();
    return type == Qt::Window || type == Qt::Dialog || type == Qt::Sheet;
}

QWidget* any_main_window()
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
    return any_main_window();
}

void give_focus_below(const QWidget& window)
{
    if (QWidget* next = next_window(window.parentWidget())) {
        next->activateWindow();
    }
}

// A window manager's frame makes the outer size larger than the inner one.
void draw_missing_frame(QWidget& window)
{
    if (window.parentWidget() == nullptr || window.frameGeometry() != window.geometry()) {
        return;
    }
    QPainter painter(&window);
    painter.setPen(window.palette().color(QPalette::Dark));
    painter.drawRect(window.rect().adjusted(0, 0, -1, -1));
}

} // namespace

bool WindowMinder::eventFilter(QObject* watched, QEvent* event)
{
    auto* window = qobject_cast<QWidget*>(watched);
    if (window == nullptr || !window->isWindow() || !takes_focus(*window)) {
        return false;
    }
    switch (event->type()) {
    case QEvent::Show:
        window->activateWindow();
        break;
    case QEvent::Hide:
        give_focus_below(*window);
        break;
    case QEvent::Paint:
        draw_missing_frame(*window);
        break;
    default:
        break;
    }
    return false;
}
