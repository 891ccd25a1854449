#include "tools/viewer.h"

#include "app/display/display_helpers.h"
#include "app/display/monospace_font.h"
#include "tools/sector_arithmetic.h"
#include "ui_viewer.h"

#include <QSignalBlocker>

#include <limits>
#include <vector>

namespace {

// No sector has this number, so the first request always shows something.
constexpr auto kNoSector = std::numeric_limits<unsigned long long>::max();

constexpr unsigned kDumpWidth = 16;

} // namespace

Viewer::Viewer(const Drive& drive, QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui_Viewer>()), drive_(drive),
      driver_(drive.device().c_str(), drive.sectorSize()), currentLba_(kNoSector)
{
    ui->setupUi(this);
    setWindowTitle(QString::fromLatin1(drive_.model()) + QLatin1String(" / ") +
                   QString::fromLatin1(drive_.serial()));
    ui->textEdit->setFont(ui_get_monospace_font());
    openDrive();
}

Viewer::~Viewer() = default;

void Viewer::openDrive()
{
    if (drive_.sectorSize() > kMaxSectorSize || !driver_.init(Driver::Read)) {
        ui->spinbox->setMaximum(0);
        ui->slider->setMaximum(0);
        ui->textEdit->setPlainText(tr("Error: driver initialization failed"));
        return;
    }
    lastLba_ = last_sector(driver_.size() / driver_.sectorSize());
    ui->spinbox->setMaximum(static_cast<double>(lastLba_));
    ui->slider->setMaximum(slider_maximum(lastLba_));
    showSector(0);
}

void Viewer::showSector(unsigned long long lba)
{
    // See "Slider and number" in docs/odd-on-purpose.md.
    if (lba == currentLba_) {
        return;
    }
    currentLba_ = lba;
    ui->textEdit->setPlainText(dumpText(lba));
    setControls(lba);
}

QString Viewer::dumpText(unsigned long long lba)
{
    const QString header = tr("*** LBA: %1 ***\n").arg(lba);
    std::vector<char> sector(static_cast<std::size_t>(driver_.sectorSize()));
    if (driver_.readSectors(lba, 1, sector.data()) != 1) {
        return header + tr("Error: read failed");
    }
    return header + QString::fromStdString(
                        hex_dump(sector.data(), static_cast<unsigned>(sector.size()), kDumpWidth));
}

// One control must not move the other, which would read another sector.
void Viewer::setControls(unsigned long long lba)
{
    const QSignalBlocker sliderBlocker(ui->slider);
    const QSignalBlocker spinboxBlocker(ui->spinbox);
    if (lastLba_ != 0) {
        ui->slider->setValue(slider_position(lba, lastLba_, ui->slider->maximum()));
    }
    ui->spinbox->setValue(static_cast<double>(lba));
}

void Viewer::on_spinbox_valueChanged(double value)
{
    showSector(whole_number(value));
}

void Viewer::on_slider_valueChanged(int position)
{
    showSector(slider_lba(position, ui->slider->maximum(), lastLba_));
}
