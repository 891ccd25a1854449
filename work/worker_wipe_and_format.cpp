#include "work/worker_wipe_and_format.h"

#include "app/base/debug_log.h"
#include "app/display/display_helpers.h"
#include "app/display/message_box.h"
#include "erase/drive_check.h"
#include "erase/pattern/pattern.h"
#include "erase/post_wipe.h"

#include <QCoreApplication>
#include <QPointer>
#include <QProgressBar>

namespace {

const char* const DBG_MODULE = "WorkWidget";

constexpr QLatin1String kFormatting("FORMAT");

QString status_word(const char* word)
{
    return QCoreApplication::translate("Process", word);
}

QString erasing_failed_text(const Drive& drive, const QString& message)
{
    return QCoreApplication::translate("Process", "%1\n\nErasing failed: %2")
        .arg(drive_string_short(drive), message);
}

QString formatting_failed_text(const Drive& drive, const QString& message)
{
    return QCoreApplication::translate("Process", "%1\n\nFormatting failed: %2")
        .arg(drive_string_short(drive), message);
}

} // namespace

// The wipe job of a row.
class WorkWidget::WorkerWipeAndFormat::WiperUI : public Wiper {
public:
    WiperUI(int id, const Drive& drive, WorkerWipeAndFormat* worker)
        : Wiper(id, drive, kDefaultPattern), worker_(worker)
    {
    }

    void updateStatusRunning() override
    {
        worker_->progressBar_->setFormat(QStringLiteral("%p%"));
        worker_->progressBar_->setValue(0);
    }

    void updateProgress(int percent) override { worker_->progressBar_->setValue(percent); }

    void updateStatusStopped() override { worker_->showStopped(); }

    void updateStatusDone() override
    {
        worker_->progressBar_->setFormat(status_word("DONE"));
        worker_->currentProcessFinished();
    }

    void updateStatusError(const QString& message) override
    {
        worker_->showFailed(*this, erasing_failed_text(drive(), message));
    }

private:
    WorkerWipeAndFormat* worker_;
};

// The format job of a row.
class WorkWidget::WorkerWipeAndFormat::FormatterUI : public Formatter {
public:
    FormatterUI(int id, const Drive& drive, WorkerWipeAndFormat* worker)
        : Formatter(id, drive), worker_(worker)
    {
    }

    void updateStatusRunning() override
    {
        worker_->progressBar_->setFormat(kFormatting);
        worker_->progressBar_->setValue(0);
    }

    void updateStatusStopped() override { worker_->showStopped(); }

    void updateStatusDone() override
    {
        worker_->progressBar_->setFormat(status_word("DONE"));
        worker_->progressBar_->setValue(100);
        worker_->currentProcessFinished();
    }

    void updateStatusError(const QString& message) override
    {
        worker_->showFailed(*this, formatting_failed_text(drive(), message));
    }

private:
    WorkerWipeAndFormat* worker_;
};

WorkWidget::WorkerWipeAndFormat::WorkerWipeAndFormat(int id, const Drive& drive, WorkWidget* owner,
                                                     QProgressBar* progressBar)
    : drive_(drive), owner_(owner), progressBar_(progressBar),
      wiper_(std::make_unique<WiperUI>(id, drive, this)),
      formatter_(std::make_unique<FormatterUI>(id, drive, this)), current_(wiper_.get())
{
}

WorkWidget::WorkerWipeAndFormat::~WorkerWipeAndFormat() = default;

void WorkWidget::WorkerWipeAndFormat::start(bool emulate)
{
    emulate_ = emulate; // before the start, which may fail and end the job at once
    if (isListedDrive(*wiper_)) {
        wiper_->start(emulate);
    }
}

// The job has failed when it is not.
bool WorkWidget::WorkerWipeAndFormat::isListedDrive(Process& job)
{
    const DriveCheck check = check_drive(drive_);
    if (!check.refusal.isEmpty()) {
        fail(job, check.refusal);
        return false;
    }
    job.setEnvironment(check.environment);
    return true;
}

// Without a child, of whose failures the log tells by itself. This worker may have gone afterwards.
void WorkWidget::WorkerWipeAndFormat::fail(Process& job, const QString& message)
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": id: " << job.id() << ": " << message << Qt::endl;
    job.setStatus(Process::Error);
    job.updateStatusError(message);
}

void WorkWidget::WorkerWipeAndFormat::stop()
{
    if (current_->status() == Process::NotStarted) {
        current_->setStatus(Process::Stopped); // nothing was written: nothing to format
        progressBar_->setFormat(status_word("STOPPED"));
        return;
    }
    current_->stop();
}

Process::Status WorkWidget::WorkerWipeAndFormat::status() const
{
    return current_->status();
}

void WorkWidget::WorkerWipeAndFormat::currentProcessFinished()
{
    if (current_ == wiper_.get()) {
        wipeFinished();
    } else {
        owner_->checkWorkers();
    }
}

void WorkWidget::WorkerWipeAndFormat::wipeFinished()
{
    switch (wiper_->status()) {
    case Process::Done:
        startFormatter(false);
        break;
    case Process::Stopped:
        // Formatted as well: the picture tells whoever finds the drive that it is partly erased.
        startFormatter(true);
        break;
    default:
        owner_->checkWorkers();
    }
}

// The row counts as being formatted from now on, though its turn comes later; it may be stopped
// before.
void WorkWidget::WorkerWipeAndFormat::startFormatter(bool partial)
{
    current_ = formatter_.get();
    formatter_->setStatus(Process::Running);
    progressBar_->setFormat(kFormatting);
    owner_->queueCall([this, partial, job = QPointer<Process>(current_)] {
        if (job && job->status() == Process::Running) {
            format(partial);
        }
    });
}

void WorkWidget::WorkerWipeAndFormat::format(bool partial)
{
    if (!isListedDrive(*formatter_)) {
        return;
    }
    QString error;
    const QString imagePath = create_postwipe_image_file(drive_, partial, &error);
    if (imagePath.isEmpty()) {
        fail(*formatter_, error);
    } else {
        formatter_->start(emulate_, imagePath);
    }
}

void WorkWidget::WorkerWipeAndFormat::showStopped()
{
    progressBar_->setFormat(status_word("STOPPED"));
    currentProcessFinished();
}

// While the message box is open anything may happen, also the end of the job and with it of
// this worker, or of the screen and its rows: then nothing of them may be touched any more.
void WorkWidget::WorkerWipeAndFormat::showFailed(Process& job, const QString& text)
{
    const QPointer<Process> self(&job);
    progressBar_->setFormat(status_word("ERROR"));
    message_box::show(owner_->window(), QMessageBox::Critical, owner_->windowTitle(), text);
    if (self && owner_) {
        currentProcessFinished();
    }
}
