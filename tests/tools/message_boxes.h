#pragma once

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

/// Answers message boxes as they appear: with OK, or with Yes unless told otherwise.
struct MessageBoxes : QTimer {
    MessageBoxes()
    {
        callOnTimeout(this, &MessageBoxes::answer);
        start(1);
    }

    void answer()
    {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            shown << (box->text().startsWith("Data on this media will be overwr") ? "?"
                                                                                  : box->text());
            const auto yes = answers.isEmpty() ? QMessageBox::Yes : answers.takeFirst();
            box->button(box->button(yes) ? yes : QMessageBox::Ok)->click();
        }
    }

    QList<QMessageBox::StandardButton> answers; ///< To the coming boxes.
    QStringList shown;                          ///< "?" stands for the overwriting question.
};
