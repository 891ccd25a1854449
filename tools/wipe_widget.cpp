#include "tools/wipe_widget.h"

#include "app/base/debug_log.h"
#include "app/display/display_helpers.h"
#include "app/display/message_box.h"
#include "erase/drive_check.h"
#include "erase/pattern/pattern.h"
#include "storage/driver.h"
#include "tools/range_writer.h"
#include "tools/sector_arithmetic.h"
#include "tools/viewer.h"
#include "ui_wipe_widget.h"

#include <QElapsedTimer>
#include <QProgressDialog>

#include <algorithm>

namespace {

const char* const DBG_MODULE = "Wipe";

constexpr double kDefaultSectorsPerTime = 256;
constexpr double kMaxSectorsPerTime = 65536;

constexpr qint64 kUpdateMs = 100;

// What is written in one call: long enough for a drive, short enough for the screen.
constexpr unsigned long long kPieceBytes = 128ULL * 1024;

QString title()
{
    return WipeWidget::tr("Wipe Drive");
}

std::vector<char> filled_piece(const std::string& pattern, unsigned long long sectorSize)
{
    const unsigned long long sectors = std::max(1ULL, kPieceBytes / sectorSize);
    std::vector<char> piece(static_cast<std::size_t>(sectors * sectorSize));
    pattern_fill_sectors(piece.data(), static_cast<unsigned>(sectorSize), pattern.data(),
                         static_cast<unsigned>(pattern.size()), static_cast<unsigned>(sectors));
    return piece;
}

} // namespace

WipeWidget::WipeWidget(QWidget* parent) : QWidget(parent), ui(std::make_unique<Ui_WipeWidget>())
{
    ui->setupUi(this);
}

WipeWidget::~WipeWidget() = default;

void WipeWidget::setDrive(const Drive& drive)
{
    drive_ = drive;
    lastLba_ = last_sector(drive.sectors());
    ui->id->setText(drive_label(drive));
    ui->lba->setMaximum(static_cast<double>(lastLba_));
    ui->lba->setValue(0); // the range is the whole drive, also on coming back
    ui->sectors->setMinimum(1);
    ui->sectors->setMaximum(static_cast<double>(drive.sectors()));
    ui->sectors->setValue(static_cast<double>(drive.sectors()));
    ui->sectorsPerTime->setMinimum(1);
    ui->sectorsPerTime->setMaximum(kMaxSectorsPerTime);
    ui->sectorsPerTime->setValue(kDefaultSectorsPerTime);
}

void WipeWidget::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    // See "The pattern comes back" in docs/odd-on-purpose.md.
    ui->pattern->setText(QLatin1String(kDefaultPattern));
    ui->pattern->setFocus(Qt::OtherFocusReason);
    ui->wipe->setDefault(true);
}

void WipeWidget::on_lba_valueChanged(double lba)
{
    // The range never runs past the end of the drive.
    ui->sectors->setMaximum(static_cast<double>(lastLba_ - whole_number(lba) + 1));
}

void WipeWidget::on_view_clicked()
{
    (new Viewer(drive_, this))->show();
}

void WipeWidget::on_wipe_clicked()
{
    const std::string pattern = pattern_from_text(ui->pattern->text().toUtf8().constData());
    if (pattern.empty()) {
        showError(tr("Error: invalid pattern"));
        return;
    }
    if (confirm_media_overwriting(this, title())) {
        wipe(pattern);
    }
}

void WipeWidget::showError(const QString& text)
{
    message_box::show(this, QMessageBox::Critical, title(), text);
}

void WipeWidget::wipe(const std::string& pattern)
{
    if (const QString refusal = check_drive(drive_).refusal; !refusal.isEmpty()) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": " << refusal << Qt::endl;
        showError(tr("Error: %1").arg(refusal));
        return;
    }
    dbg_ostream(DBG_MODULE, __LINE__) << ": init " << drive_.device() << Qt::endl;
    Driver driver(drive_.device().c_str(), drive_.sectorSize());
    if (drive_.sectorSize() > kMaxSectorSize || !driver.init(Driver::Write)) {
        dbg_ostream(DBG_MODULE, __LINE__) << ": init failed" << Qt::endl;
        showError(tr("Error: driver initialization failed"));
        return;
    }
    wipeRange(driver, filled_piece(pattern, drive_.sectorSize()));
}

void WipeWidget::wipeRange(Driver& driver, const std::vector<char>& piece)
{
    const unsigned long long blockSectors = whole_number(ui->sectorsPerTime->value());
    const unsigned long long totalSectors = whole_number(ui->sectors->value());
    SectorRange block{whole_number(ui->lba->value()), 0};
    unsigned long long remaining = totalSectors;
    // The dialog goes with this widget, should events below end it.
    const QPointer<QProgressDialog> dialog = openProgressDialog();
    RangeWriter writer(driver, piece, dialog);
    QElapsedTimer sinceUpdate;
    sinceUpdate.start();
    while (remaining > 0 && dialog) {
        if (sinceUpdate.elapsed() > kUpdateMs) {
            showProgress(*dialog, block.lba, totalSectors);
            sinceUpdate.start();
        }
        if (!writer.takeTurn()) {
            break;
        }
        block.count = std::min(blockSectors, remaining);
        if (const auto failed = writer.write(block); failed && !confirmFailure(*failed)) {
            break;
        }
        block.lba += block.count; // a failed block that the user passes over counts as done
        remaining -= block.count;
    }
    const bool isWritten = dialog && remaining == 0 && totalSectors != 0;
    const auto unflushed = isWritten ? writer.flush() : std::nullopt;
    const bool isComplete = isWritten && (!unflushed || confirmFailure(*unflushed)) &&
                            writer.takeTurn(); // not when it was interrupted meanwhile
    delete dialog.data();
    if (isComplete) {
        message_box::show(this, QMessageBox::Information, title(), tr("Wipe complete"));
    }
}

void WipeWidget::showProgress(QProgressDialog& dialog, unsigned long long lba,
                              unsigned long long totalSectors)
{
    dialog.setLabelText(tr("LBA: %1").arg(lba));
    dialog.setValue(wipe_progress(lba, totalSectors));
}

QPointer<QProgressDialog> WipeWidget::openProgressDialog()
{
    QPointer<QProgressDialog> dialog =
        new QProgressDialog(tr("Starting..."), tr("Interrupt"), 0, 99, this);
    dialog->setWindowTitle(title());
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setMinimumDuration(0);
    dialog->setAutoReset(false);
    dialog->setAutoClose(false);
    dialog->setValue(0);
    dialog->show();
    return dialog;
}

bool WipeWidget::confirmFailure(const SectorRange& failed)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": write failed: lba: " << failed.lba << ", sectors: " << failed.count << Qt::endl;
    const QString text = tr("Error: write failed at LBA %1 (%2 sectors)\n\nAre you sure you want "
                            "to continue?")
                             .arg(QString::number(failed.lba), QString::number(failed.count));
    return message_box::ask(this, QMessageBox::Critical, title(), text, QMessageBox::NoButton);
}
