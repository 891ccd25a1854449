#pragma once

#include "storage/drive.h"

#include <QPointer>
#include <QWidget>

#include <memory>
#include <string>
#include <vector>

class Driver;
class QProgressDialog;
class Ui_WipeWidget;
struct SectorRange;

/// Overwrites a range of a drive's sectors with a pattern, in its own event loop under a
/// progress dialog that can be interrupted.
class WipeWidget : public QWidget {
    Q_OBJECT

public:
    explicit WipeWidget(QWidget* parent);
    ~WipeWidget() override;

    /// Takes over a drive; the range becomes the whole of it.
    void setDrive(const Drive& drive);

protected:
    void showEvent(QShowEvent* event) override;

private slots:
    void on_lba_valueChanged(double lba);
    void on_view_clicked();
    void on_wipe_clicked();

private:
    void showError(const QString& text);
    void wipe(const std::string& pattern);
    void wipeRange(Driver& driver, const std::vector<char>& piece);
    QPointer<QProgressDialog> openProgressDialog();
    void showProgress(QProgressDialog& dialog, unsigned long long lba,
                      unsigned long long totalSectors);
    [[nodiscard]] bool confirmFailure(const SectorRange& failed);

    Drive drive_;
    unsigned long long lastLba_ = 0;
    std::unique_ptr<Ui_WipeWidget> ui;
};
