#include "app/display/message_box.h"

#include <QAbstractButton>
#include <QPointer>

namespace message_box {
namespace {

int run(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text,
        QMessageBox::StandardButtons buttons, QMessageBox::StandardButton defaultButton)
{
    // The parent deletes the box when it goes first.
    const QPointer<QMessageBox> box = new QMessageBox(icon, title, text, buttons, parent);
    box->setTextFormat(Qt::PlainText);
    box->setDefaultButton(defaultButton);
    if (QAbstractButton* no = box->button(QMessageBox::No)) {
        no->setFocus(Qt::OtherFocusReason);
    }
    const int answer = box->exec();
    delete box.data();
    return answer;
}

} // namespace

void show(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text)
{
    run(parent, icon, title, text, QMessageBox::Ok, QMessageBox::Ok);
}

bool ask(QWidget* parent, QMessageBox::Icon icon, const QString& title, const QString& text,
         QMessageBox::StandardButton defaultButton)
{
    return run(parent, icon, title, text, QMessageBox::Yes | QMessageBox::No, defaultButton) ==
           QMessageBox::Yes;
}

} // namespace message_box
