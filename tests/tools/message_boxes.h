#pragma once

#include <QApplication>
#include <QMessageBox>
#include <QMetaEnum>
#include <QPushButton>
#include <QTimer>

/// Answers message boxes as they appear: with OK, or with Yes unless told otherwise.
class MessageBoxes : public QTimer {
public:
    MessageBoxes()
    {
        callOnTimeout(this, &MessageBoxes::answer);
        start(1);
    }

    QList<QMessageBox::StandardButton> answers; ///< To the coming questions.
    QStringList shown; ///< "Icon title: text"; "?" stands for the overwriting question.

private:
    void answer()
    {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            const auto icon = QMetaEnum::fromType<QMessageBox::Icon>().valueToKey(box->icon());
            const bool isOverwriting = box->text().startsWith("Data on this media will be overwr");
            shown << (isOverwriting ? "?" : icon + (' ' + box->windowTitle() + ": ") + box->text());
            const bool isQuestion = box->standardButtons() == (QMessageBox::Yes | QMessageBox::No);
            const auto yes = answers.isEmpty() ? QMessageBox::Yes : answers.takeFirst();
            box->button(isQuestion ? yes : QMessageBox::Ok)->click();
        }
    }
};
