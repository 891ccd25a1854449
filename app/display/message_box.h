#pragma once

#include <QMessageBox>
#include <QString>

class QWidget;

/// Modal message boxes. Their text is plain text: what a drive reports of itself may hold
/// markup. The event loop runs while a box is open, so anything may happen meanwhile, also
/// the end of the object that opened it.
namespace message_box {

/// Shows a message with a single OK button.
void show(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text);

/// Asks with the buttons Yes and No; true only when Yes was pressed. Also without a default
/// button (NoButton) the keyboard is on No: a bare Return never says Yes.
[[nodiscard]] bool ask(QWidget* parent, QMessageBox::Icon icon, const QString& title,
                       const QString& text, QMessageBox::StandardButton defaultButton);

} // namespace message_box
