#pragma once

#include "storage/file_system.h"

#include <QDialog>

#include <memory>
#include <vector>

class Ui_Mounter;

/// Lists the computer's file systems, mounts and unmounts them, and looks through mounted
/// ones. It is not deleted when closed; it stays a hidden child of its parent.
class Mounter : public QDialog {
    Q_OBJECT

public:
    explicit Mounter(QWidget* parent);
    ~Mounter() override;

    /// Reads the file systems again; the row selected before stays selected if it is there.
    void refresh();

private slots:
    void debugWindow();
    void on_refresh_clicked();
    void on_mount_clicked();
    void on_umount_clicked();
    void on_browse_clicked();
    void on_listWidget_currentRowChanged(int row);

private:
    FileSystem* currentFileSystem();
    void runOnCurrent(bool (FileSystem::*operation)(), const QString& failureText);

    std::unique_ptr<Ui_Mounter> ui;
    std::vector<FileSystem> fileSystems_; ///< Row i of the list shows element i.
};
