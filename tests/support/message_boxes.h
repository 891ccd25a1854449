#pragma once

#include <QApplication>
#include <QFileDialog>
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
        } else if (auto* dialog = qobject_cast<QFileDialog*>(modal);
                   dialog && dialog->selectedFiles() != QStringList{fileName}) {
            proposed = dialog->selectedFiles().value(0);
            dialog->findChild<QLineEdit*>("fileNameEdit")->setText(fileName);
            QMetaObject::invokeMethod(dialog, "accept", Qt::QueuedConnection);
        }
    }

    QList<QMessageBox::StandardButton> answers; ///< To the coming boxes.
    QStringList shown;                          ///< "?" stands for the overwriting question.
    QString fileName;
    QString proposed;                   ///< By the last file dialog.
    std::function<void()> seen = [] {}; ///< Called for each box before it is answered.
};
