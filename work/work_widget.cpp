#include "work/work_widget.h"

#include "app/base/debug_log.h"
#include "app/base/program_config.h"
#include "app/display/display_helpers.h"
#include "app/display/message_box.h"
#include "app/window/main_window.h"
#include "storage/drives.h"
#include "ui_work_widget.h"
#include "work/worker_disabled.h"
#include "work/worker_wipe_and_format.h"

#include <QHeaderView>
#include <QProgressBar>

#include <algorithm>

namespace {

const char* const DBG_MODULE = "WorkWidget";

constexpr int kTickMs = 1000;

// The discovery waits until this tick at first, and after a change of the number of drives
// for this many ticks more; but it never goes on beyond the last tick.
constexpr int kFirstWaitTicks = 30;
constexpr int kMoreDrivesWaitTicks = 10;
constexpr int kLastTick = 30;

constexpr int kCountdownSeconds = 10;

constexpr int kTextColumn = 0;
constexpr int kBarColumn = 1;

// The paths of all drives and their partitions: when it changes, the rows are rebuilt.
QString drives_signature(const std::vector<Drive>& drives)
{
    QStringList paths;
    for (const Drive& drive : drives) {
        paths << QString::fromLatin1(drive.device());
        for (const Drive::Partition& partition : drive.partitions()) {
            paths << QString::fromLatin1(partition.device());
        }
    }
    return paths.join(QLatin1String(", "));
}

QString partition_text(const Drive::Partition& partition)
{
    return short_size_string(partition.size()) + QLatin1String(" / ") +
           QString::fromLatin1(partition.comment());
}

// Erasing has begun: who is not running yet waits for its start.
bool has_work(const WorkWidget::Worker& worker)
{
    return worker.status() == Process::Running || worker.status() == Process::NotStarted;
}

QString seconds_text(int seconds)
{
    return seconds == 1 ? QObject::tr("1 second") : QObject::tr("%1 seconds").arg(seconds);
}

} // namespace

WorkWidget::WorkWidget(MainWindow* mainWindow)
    : QWidget(mainWindow), ui(std::make_unique<Ui_WorkWidget>()), mainWindow_(mainWindow)
{
    ui->setupUi(this);
    ui->drivesTreeWidget->setFocusPolicy(Qt::NoFocus);
    ui->drivesTreeWidget->setSelectionMode(QAbstractItemView::NoSelection);
    ui->drivesTreeWidget->header()->swapSections(kTextColumn, kBarColumn);
    keepButtonRow();
    timer_.setInterval(kTickMs);
    callTimer_.setSingleShot(true);
    callTimer_.callOnTimeout(this, &WorkWidget::runNextCall);
    // The window is painted before the first tick, which may have to wait for the disk service.
    showStopButton();
    showInformation("green", tr("Initializing"));
}

WorkWidget::~WorkWidget() = default;

QWidget* WorkWidget::window()
{
    return mainWindow_;
}

QString WorkWidget::windowTitle()
{
    return mainWindow_ != nullptr ? mainWindow_->windowTitle() : QString();
}

void WorkWidget::initStart()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": initStart()" << Qt::endl;
    state_ = Initializing;
    showStopButton();
    clearDrives();
    drivesString_ = QString();
    initCounter_ = 0;
    initFindMoreDrivesTimeout_ = kFirstWaitTicks;
    restartTimer(&WorkWidget::initTimeout);
    ui->informationLabel->setStyleSheet(QStringLiteral("QLabel { color : green; }"));
    initTimeout();
}

void WorkWidget::initTimeout()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": initTimeout()" << Qt::endl;
    const std::size_t rowsBefore = workers_.size();
    initDrivesUpdate();
    // Only the number of drives counts; this may also lower the limit below its first value.
    if (workers_.size() != rowsBefore) {
        initFindMoreDrivesTimeout_ = initCounter_ + kMoreDrivesWaitTicks;
        dbg_ostream(DBG_MODULE, __LINE__)
            << ": initFindMoreDrivesTimeout_: " << initFindMoreDrivesTimeout_ << Qt::endl;
    }
    if (initCounter_ <= kLastTick && initCounter_ <= initFindMoreDrivesTimeout_) {
        const QString dots(initCounter_ % 4, QLatin1Char('.'));
        ui->informationLabel->setText(tr("Initializing") + dots);
        ++initCounter_;
    } else {
        initStop();
    }
}

void WorkWidget::initDrivesUpdate()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": initDrivesUpdate()" << Qt::endl;
    const std::vector<Drive> drives = get_drives();
    const QString signature = drives_signature(drives);
    if (signature == drivesString_) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": no update: " << signature << Qt::endl;
        return;
    }
    drivesString_ = signature;
    clearDrives();
    for (const Drive& drive : drives) {
        QProgressBar* bar = addRow(drive);
        dbg_ostream(DBG_MODULE, __LINE__)
            << ": create DISABLED worker for drive " << workers_.size() << " (" << drive.model()
            << ")" << Qt::endl;
        workers_.push_back(std::make_shared<WorkerDisabled>(drive, bar));
    }
}

void WorkWidget::initStop()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": initStop()" << Qt::endl;
    timer_.stop();
    if (!workers_.empty()) {
        countdownStart();
        return;
    }
    state_ = Idle;
    showRestartButton();
    showInformation("red", tr("No drives found"));
    dbg_ostream(DBG_MODULE, __LINE__) << ": message: " << ui->informationLabel->text() << Qt::endl;
    message_box::show(this, QMessageBox::Critical, windowTitle(),
                      tr("No drives found. Some slow drives may take longer to load. Click "
                         "[Restart Initialization] to try again."));
}

void WorkWidget::countdownStart()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": countdownStart()" << Qt::endl;
    dbg_ostream(DBG_MODULE, __LINE__) << ": " << workers_.size() << " workers" << Qt::endl;
    createWipeWorkers();
    state_ = CountingDown;
    showStopButton();
    countdownCounter_ = kCountdownSeconds;
    restartTimer(&WorkWidget::countdownTimeout);
    ui->informationLabel->setStyleSheet(QStringLiteral("QLabel { color : red; }"));
    countdownTimeout();
}

// The discovery leaves placeholders only: each one's drive and bar go to an erase worker.
void WorkWidget::createWipeWorkers()
{
    std::vector<std::shared_ptr<Worker>> wipeWorkers;
    for (const auto& worker : workers_) {
        const auto& placeholder = dynamic_cast<const WorkerDisabled&>(*worker);
        const int id = static_cast<int>(wipeWorkers.size());
        dbg_ostream(DBG_MODULE, __LINE__) << ": create WIPE AND FORMAT worker for drive " << id
                                          << " (" << placeholder.drive().model() << ")" << Qt::endl;
        QProgressBar* bar = placeholder.progressBar();
        wipeWorkers.push_back(
            std::make_shared<WorkerWipeAndFormat>(id, placeholder.drive(), this, bar));
        bar->setFormat(QStringLiteral("%p%"));
        bar->setValue(0);
    }
    workers_ = std::move(wipeWorkers);
}

void WorkWidget::countdownTimeout()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": countdownTimeout()" << Qt::endl;
    if (countdownCounter_ < 1) {
        eraseStart();
        return;
    }
    const QString message =
        tr("%1 will begin erasing in %2...")
            .arg(QString::fromLatin1(theProgramConfig().name()), seconds_text(countdownCounter_));
    dbg_ostream(DBG_MODULE, __LINE__) << ": message: " << message << Qt::endl;
    ui->informationLabel->setText(message);
    --countdownCounter_;
}

void WorkWidget::countdownStop()
{
    dbg_ostream(DBG_MODULE, __LINE__) << ": countdownStop()" << Qt::endl;
    timer_.stop();
    state_ = Idle;
    showRestartButton();
    showInformation("blue", tr("Stopped."));
}

void WorkWidget::eraseStart()
{
    timer_.stop();
    state_ = Erasing;
    showStopButton();
    showInformation("green", tr("Erasing drives..."));
    // See "Emulation read once" in docs/odd-on-purpose.md.
    const bool emulate = mainWindow_ != nullptr && mainWindow_->emulateErasing();
    for (const auto& worker : workers_) {
        // Each start waits for its child. One that was not reached when the user stops is left out.
        queueCall([worker, emulate] {
            if (worker->status() == Process::NotStarted) {
                worker->start(emulate);
            }
        });
    }
}

void WorkWidget::eraseStop()
{
    const QString question = tr("If you stop erasing, not all of your data will be erased. Are "
                                "you sure you want to stop?");
    if (!message_box::ask(this, QMessageBox::Question, windowTitle(), question, QMessageBox::No)) {
        return;
    }
    const auto workers = workers_; // stay alive whatever happens below a box
    for (const auto& worker : workers) {
        if (has_work(*worker)) {
            worker->stop();
        }
    }
    state_ = Idle;
    hideButtons();
    checkWorkers(); // none may be left whose end would come here
}

void WorkWidget::checkWorkers()
{
    if (std::any_of(workers_.cbegin(), workers_.cend(),
                    [](const auto& worker) { return has_work(*worker); })) {
        return;
    }
    // See "Complete. is no promise" in docs/odd-on-purpose.md.
    state_ = Idle;
    hideButtons();
    showInformation("blue", tr("Complete."));
}

void WorkWidget::queueCall(std::function<void()> call)
{
    queuedCalls_.push_back(std::move(call));
    callTimer_.start();
}

// The turn after it comes also below a message box that the call opens.
void WorkWidget::runNextCall()
{
    if (queuedCalls_.empty()) {
        return;
    }
    const auto call = std::move(queuedCalls_.front());
    queuedCalls_.pop_front();
    if (!queuedCalls_.empty()) {
        callTimer_.start();
    }
    call();
}

void WorkWidget::on_restartInitializationButton_clicked()
{
    initStart();
}

void WorkWidget::on_stopButton_clicked()
{
    switch (state_) {
    case Initializing:
        initStop();
        break;
    case CountingDown:
        countdownStop();
        break;
    case Erasing:
        eraseStop();
        break;
    case Idle:
        break;
    }
}

void WorkWidget::showStopButton()
{
    ui->stopButton->show();
    ui->stopButton->setFocus(Qt::OtherFocusReason);
    ui->restartInitializationButton->hide();
}

void WorkWidget::showRestartButton()
{
    ui->stopButton->hide();
    ui->restartInitializationButton->show();
    ui->restartInitializationButton->setFocus(Qt::OtherFocusReason);
}

// The keyboard must not fall on "Restart Computer", where a key that was meant for Stop would
// restart it; Tab leads there.
void WorkWidget::hideButtons()
{
    setFocus(Qt::OtherFocusReason);
    ui->stopButton->hide();
    ui->restartInitializationButton->hide();
}

// Without buttons the row keeps its height, so that the drives do not move.
void WorkWidget::keepButtonRow()
{
    QSizePolicy policy = ui->restartInitializationButton->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    ui->restartInitializationButton->setSizePolicy(policy);
}

void WorkWidget::showInformation(const char* color, const QString& text)
{
    ui->informationLabel->setStyleSheet(
        QStringLiteral("QLabel { color : %1; }").arg(QLatin1String(color)));
    ui->informationLabel->setText(text);
}

void WorkWidget::restartTimer(void (WorkWidget::*slot)())
{
    timer_.disconnect();
    connect(&timer_, &QTimer::timeout, this, slot);
    timer_.start();
}

void WorkWidget::clearDrives()
{
    ui->drivesTreeWidget->clear();
    workers_.clear();
    queuedCalls_.clear(); // of workers whose rows have gone
}

QProgressBar* WorkWidget::addRow(const Drive& drive)
{
    auto* row = new QTreeWidgetItem({drive_string_short(drive)});
    for (const Drive::Partition& partition : drive.partitions()) {
        row->addChild(new QTreeWidgetItem({partition_text(partition)}));
    }
    ui->drivesTreeWidget->addTopLevelItem(row);
    auto* bar = new QProgressBar;
    ui->drivesTreeWidget->setItemWidget(row, kBarColumn, bar);
    row->setExpanded(true);
    // See "Rows before erasing" in docs/odd-on-purpose.md.
    bar->setFormat(QObject::tr("INIT"));
    bar->setValue(100);
    return bar;
}
