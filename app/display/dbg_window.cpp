#include "app/display/dbg_window.h"

#include "app/base/debug_log.h"
#include "app/display/message_box.h"
#include "app/display/monospace_font.h"
#include "ui_dbg_window.h"

#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QGuiApplication>
#include <QScreen>

namespace {

bool isDebugWindowOpen = false;

// The top-left corner of something centred in a frame, both measured along one axis.
int centred(int frameStart, int frameLength, int length)
{
    return frameStart + (frameLength - 1) / 2 - (length - 1) / 2;
}

} // namespace

DbgWindow::DbgWindow(QWidget* parent) : QWidget(parent), ui(std::make_unique<Ui_DbgWindow>())
{
    ui->setupUi(this);
    ui->plainTextEdit->setFont(ui_get_monospace_font());
    showLog();
    // No button to close: see "The debug window" in docs/odd-on-purpose.md.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowMaximizeButtonHint);
    setAttribute(Qt::WA_DeleteOnClose);
    resize(640, 480);
    centre();
    show();
    isDebugWindowOpen = true;
}

DbgWindow::~DbgWindow()
{
    isDebugWindowOpen = false;
}

void DbgWindow::showLog()
{
    if (dbg_type() == QLatin1String(DBG_TYPE_STRING)) {
        ui->plainTextEdit->appendPlainText(dbg_string());
    } else {
        ui->plainTextEdit->appendPlainText(tr("dbg_type: %1").arg(dbg_type()));
    }
}

void DbgWindow::centre()
{
    // Without a parent the screen's own offset is not added: the boot medium's one screen has none.
    const QRect frame =
        parentWidget() != nullptr
            ? QRect(parentWidget()->frameGeometry().topLeft(), parentWidget()->size())
            : QRect(QPoint(0, 0), QGuiApplication::primaryScreen()->geometry().size());
    move(centred(frame.x(), frame.width(), width()), centred(frame.y(), frame.height(), height()));
}

void DbgWindow::on_saveButton_clicked()
{
    const QString fileName = QFileDialog::getSaveFileName(
        this, tr("Save Debug Information"),
        // See "Debug Infomation.txt" in docs/odd-on-purpose.md.
        QDir::homePath() + QDir::separator() + QLatin1String("Debug Infomation.txt"),
        tr("Text Files (*.txt);;All Files (*.*)"));
    if (fileName.isEmpty()) {
        return;
    }
    QFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) {
        message_box::show(this, QMessageBox::Warning, tr("Error"),
                          tr("Cannot open %1\n(%2)").arg(fileName, file.errorString()));
        return;
    }
    const QByteArray text = ui->plainTextEdit->toPlainText().toUtf8();
    // close() forgets an error of an earlier write.
    const bool isWritten = file.write(text) == text.size() && file.flush();
    const QString writeError = file.errorString();
    file.close();
    if (!isWritten || file.error() != QFileDevice::NoError) {
        const QString reason = isWritten ? file.errorString() : writeError;
        message_box::show(this, QMessageBox::Warning, tr("Error"),
                          tr("Cannot save %1\n(%2)").arg(fileName, reason));
    }
}

void DbgWindow::on_closeButton_clicked()
{
    close();
}

void dbg_window(QWidget* parent)
{
    if (!isDebugWindowOpen) {
        new DbgWindow(parent);
    }
}
