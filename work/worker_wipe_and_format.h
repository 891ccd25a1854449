#pragma once

#include "erase/formatter.h"
#include "erase/wiper.h"
#include "storage/drive.h"
#include "work/worker.h"

#include <QPointer>

/// Erases one drive: first the wipe job; when that has ended, completely or because the
/// user stopped it, the post-wipe picture and the format job. A failed wipe is not
/// formatted, nor is a drive whose wipe was stopped before it began. Destroying the worker kills
/// what still runs.
class WorkWidget::WorkerWipeAndFormat : public WorkWidget::Worker {
public:
    /// `id` identifies both jobs in the log. The bar belongs to the row.
    WorkerWipeAndFormat(int id, const Drive& drive, WorkWidget* owner, QProgressBar* progressBar);
    ~WorkerWipeAndFormat() override;

    void start(bool emulate) override;
    void stop() override;
    void currentProcessFinished() override;
    [[nodiscard]] Process::Status status() const override;

private:
    class WiperUI;
    class FormatterUI;

    [[nodiscard]] bool isListedDrive(Process& job);
    void fail(Process& job, const QString& message);
    void wipeFinished();
    void startFormatter(bool partial);
    void format(bool partial);
    void showStopped();
    void showFailed(Process& job, const QString& text);

    Drive drive_;
    QPointer<WorkWidget> owner_; ///< May go while a message box of this worker is open.
    QProgressBar* progressBar_;
    std::unique_ptr<WiperUI> wiper_;
    std::unique_ptr<FormatterUI> formatter_;
    Process* current_;
    bool emulate_ = false;
};
