#include "tools/mounter.h"

#include "app/display/dbg_window.h"
#include "app/display/message_box.h"
#include "ui_mounter.h"

#include <QFileDialog>
#include <QPointer>
#include <QShortcut>

namespace {

std::string row_text(const FileSystem& fileSystem)
{
    // All of it when there is no separator, nothing when the path ends in one.
    const std::string& path = fileSystem.devicePath();
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string label = fileSystem.label().empty() ? "<no label>" : fileSystem.label();
    const std::string place =
        fileSystem.mountPath().empty() ? "<not mounted>" : fileSystem.mountPath();
    return name + ": " + label + " (" + fileSystem.type() + ") - " + place;
}

} // namespace

Mounter::Mounter(QWidget* parent) : QDialog(parent), ui(std::make_unique<Ui_Mounter>())
{
    ui->setupUi(this);
    ui->listWidget->setSelectionMode(QAbstractItemView::SingleSelection);
    on_listWidget_currentRowChanged(-1);
    auto* shortcut = new QShortcut(QKeySequence(QStringLiteral("Shift+Alt+D")), this);
    connect(shortcut, &QShortcut::activated, this, &Mounter::debugWindow);
    refresh();
}

Mounter::~Mounter() = default;

void Mounter::refresh()
{
    const int row = ui->listWidget->currentRow();
    ui->listWidget->clear();
    fileSystems_ = get_filesystems();
    for (const FileSystem& fileSystem : fileSystems_) {
        ui->listWidget->addItem(QString::fromLatin1(row_text(fileSystem)));
    }
    const bool isStillThere = row >= 0 && row < ui->listWidget->count();
    ui->listWidget->setCurrentRow(isStillThere ? row : 0);
}

void Mounter::debugWindow()
{
    dbg_window(this);
}

void Mounter::on_refresh_clicked()
{
    refresh();
}

void Mounter::on_mount_clicked()
{
    runOnCurrent(&FileSystem::mount, tr("mount failed"));
}

void Mounter::on_umount_clicked()
{
    runOnCurrent(&FileSystem::umount, tr("umount failed"));
}

void Mounter::on_browse_clicked()
{
    const FileSystem* fileSystem = currentFileSystem();
    if (fileSystem == nullptr || fileSystem->mountPath().empty()) {
        return;
    }
    // Only for looking: what is picked does not matter.
    QFileDialog::getOpenFileName(this, tr("Open File"),
                                 QString::fromLatin1(fileSystem->mountPath()), tr("Files (*.*)"));
}

void Mounter::on_listWidget_currentRowChanged(int)
{
    const FileSystem* fileSystem = currentFileSystem();
    const bool isMounted = fileSystem != nullptr && !fileSystem->mountPath().empty();
    ui->mount->setEnabled(fileSystem != nullptr && !isMounted);
    ui->umount->setEnabled(isMounted);
    ui->browse->setEnabled(isMounted);
}

FileSystem* Mounter::currentFileSystem()
{
    const int row = ui->listWidget->currentRow();
    if (row < 0 || row >= static_cast<int>(fileSystems_.size())) {
        return nullptr;
    }
    return &fileSystems_[static_cast<std::size_t>(row)];
}

// The user interface is alive during the operation, and a refresh may replace the list:
// the operation works on a copy.
void Mounter::runOnCurrent(bool (FileSystem::*operation)(), const QString& failureText)
{
    const FileSystem* current = currentFileSystem();
    if (current == nullptr) {
        return;
    }
    FileSystem fileSystem = *current;
    const QPointer<Mounter> self(this);
    if (!(fileSystem.*operation)() && self) {
        message_box::show(this, QMessageBox::Critical, windowTitle(), failureText);
    }
    if (self) {
        refresh();
    }
}
