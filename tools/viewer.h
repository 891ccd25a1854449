#pragma once

#include "storage/drive.h"
#include "storage/driver.h"

#include <QDialog>

#include <memory>

class Ui_Viewer;

/// Shows one sector of a drive at a time as a hexadecimal dump. It is not deleted when
/// closed; it lives, with the drive open, as long as its parent.
class Viewer : public QDialog {
    Q_OBJECT

public:
    Viewer(const Drive& drive, QWidget* parent);
    ~Viewer() override;

    /// Reads and shows a sector, unless it is the one shown, and sets both controls to it.
    void showSector(unsigned long long lba);

private slots:
    void on_spinbox_valueChanged(double value);
    void on_slider_valueChanged(int position);

private:
    void openDrive();
    QString dumpText(unsigned long long lba);
    void setControls(unsigned long long lba);

    std::unique_ptr<Ui_Viewer> ui;
    Drive drive_;
    Driver driver_;
    unsigned long long currentLba_;
    unsigned long long lastLba_ = 0;
};
