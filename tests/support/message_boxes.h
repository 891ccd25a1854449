#pragma once

#include <QApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include <functional>

/// Answers message boxes as they appear: with OK, or with Yes unless told otherwise. Gives file
/// dialogs the file name.
struct MessageBoxes : QTimer {
    MessageBoxes()
    {
        callOnTimeout(this, &MessageBoxes::answer);
        start(1);
    }

    void answer()
    {
        QWidget* modal = QApplication::activeModalWidget();
        if (auto* box = qobject_cast<QMessageBox*>(modal)) {
            const bool isUsual = box->text() == "Data on this media will be overwritten!\n\n"
                                                "Are you sure you want to continue?";
            shown << (isUsual ? "?" : box->text());
            seen();
            const auto yes = answers.isEmpty() ? QMessageBox::Yes : answers.takeFirst();
            box->button(box->button(yes) ? yes : QMessageBox::Ok)->click();
        } else if (auto* edit = modal ? modal->findChild<QLineEdit*>("fileNameEdit") : nullptr) {
            edit->setText(fileName);
            QMetaObject::invokeMethod(modal, "accept", Qt::QueuedConnection);
        }
    }

    QList<QMessageBox::StandardButton> answers; ///< To the coming boxes.
    QStringList shown;                          ///< "?" stands for the overwriting question.
    QString fileName;
    std::function<void()> seen = [] {}; ///< Called for each box before it is answered.
};
