#pragma once

#include "storage/drive.h"
#include "work/worker.h"

/// The placeholder behind a row while drives are being discovered. It does nothing and
/// never counts as running.
class WorkWidget::WorkerDisabled : public WorkWidget::Worker {
public:
    /// The bar belongs to the row.
    WorkerDisabled(const Drive& drive, QProgressBar* progressBar);

    [[nodiscard]] const Drive& drive() const { return drive_; }
    [[nodiscard]] QProgressBar* progressBar() const { return progressBar_; }

    void start(bool emulate) override;
    void stop() override;
    void currentProcessFinished() override;
    [[nodiscard]] Process::Status status() const override;

private:
    Drive drive_;
    QProgressBar* progressBar_;
};
