#include "tools/format_page.h"

#include "app/base/abandon.h"
#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "app/display/display_helpers.h"
#include "app/display/message_box.h"
#include "erase/drive_check.h"
#include "erase/helper_program.h"
#include "erase/post_wipe.h"
#include "tools/horizontal_line.h"
#include "tools/selected_drive.h"

#include <QLabel>
#include <QProgressDialog>
#include <QPushButton>
#include <QVBoxLayout>

#include <utility>

namespace {

const char* const DBG_MODULE = "Format";

constexpr int kStartWaitMs = 30000;

void log_output(const char* stream, const QByteArray& output)
{
    QString text = QString::fromLatin1(output.constData()); // up to the first zero byte
    if (text.endsWith(QLatin1Char('\n'))) {
        text.chop(1);
    }
    dbg_ostream(DBG_MODULE, __LINE__) << ": " << stream << ": " << text << Qt::endl;
}

} // namespace

FormatPage::FormatPage(QWidget* parent) : QWizardPage(parent), driveLabel_(new QLabel(this))
{
    setTitle(tr("Format Drive"));
    auto* button = new QPushButton(tr("&Format Drive"), this);
    button->setDefault(false);
    button->setAutoDefault(false);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(driveLabel_);
    layout->addWidget(horizontal_line(this));
    // See "Wordings that look wrong" in docs/odd-on-purpose.md.
    layout->addWidget(new QLabel(
        tr("Click [Format Drive] button to format all drive as a bootable FAT32 partition\n"
           "with %1 logo screen. Later this partition can be used as a file storage.")
            .arg(QString::fromLatin1(theProgramConfig().name())),
        this));
    layout->addWidget(button);
    connect(button, &QPushButton::clicked, this, &FormatPage::format);
}

FormatPage::~FormatPage()
{
    processClear();
}

void FormatPage::initializePage()
{
    driveLabel_->setText(drive_label(selected_drive(wizard())));
}

void FormatPage::format()
{
    if (!confirm_media_overwriting(this, title())) {
        return;
    }
    const Drive drive = selected_drive(wizard());
    const DriveCheck check = check_drive(drive);
    QString error = check.refusal;
    // See "A picture that says erased" in docs/odd-on-purpose.md.
    const QString imagePath =
        error.isEmpty() ? create_postwipe_image_file(drive, false, &error) : QString();
    if (imagePath.isEmpty()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": " << error << Qt::endl;
        message_box::show(this, QMessageBox::Critical, title(), error);
        return;
    }
    processClear();
    process_ = new QProcess(this);
    process_->setProcessEnvironment(check.environment);
    startProcess({QString::fromLatin1(drive.device()), imagePath});
    if (!process_->waitForStarted(kStartWaitMs)) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": " << process_->errorString() << Qt::endl;
        processClear();
        message_box::show(this, QMessageBox::Critical, title(), tr("Format failed"));
        return;
    }
    runProgressDialog();
}

void FormatPage::startProcess(const QStringList& arguments)
{
    connect(process_, &QProcess::readyReadStandardOutput, this, &FormatPage::processStandardOutput);
    connect(process_, &QProcess::readyReadStandardError, this, &FormatPage::processStandardError);
    connect(process_, &QProcess::finished, this, &FormatPage::processFinished);
    const QString program = helper_program("format");
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": start: " << program << " " << arguments.join(QLatin1Char(' ')) << Qt::endl;
    process_->start(program, arguments, QIODevice::ReadWrite);
}

// The dialog's loop ends when the helper's end deletes the dialog.
void FormatPage::runProgressDialog()
{
    progressDialog_ = new QProgressDialog(tr("Please wait..."), tr("Interrupt"), 0, 0, this);
    progressDialog_->setWindowTitle(title());
    progressDialog_->setWindowModality(Qt::WindowModal);
    progressDialog_->setMinimumDuration(0);
    connect(progressDialog_, &QProgressDialog::canceled, this, &FormatPage::processCancelled);
    cancelled_ = false;
    progressDialog_->exec();
}

void FormatPage::processStandardOutput()
{
    log_output("stdout", process_->readAllStandardOutput());
}

void FormatPage::processStandardError()
{
    log_output("stderr", process_->readAllStandardError());
}

void FormatPage::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    // See "Lines of the jobs" in docs/odd-on-purpose.md.
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": finish: exitCode: " << exitCode << "; exitStatus: " << int(exitStatus) << Qt::endl;
    processClear();
    if (exitStatus == QProcess::NormalExit && exitCode == 0) {
        message_box::show(this, QMessageBox::Information, title(), tr("Format complete"));
    } else if (!cancelled_) {
        message_box::show(this, QMessageBox::Critical, title(), tr("Format failed"));
    }
}

void FormatPage::processClear()
{
    if (process_ != nullptr) {
        process_->disconnect(this);
        kill_and_abandon(std::exchange(process_, nullptr));
    }
    delete progressDialog_;
    progressDialog_ = nullptr;
}

void FormatPage::processCancelled()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": kill" << Qt::endl;
    cancelled_ = true;
    process_->kill();
}
