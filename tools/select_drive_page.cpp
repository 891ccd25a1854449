#include "tools/select_drive_page.h"

#include "storage/drives.h"
#include "tools/selected_drive.h"
#include "tools/viewer.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr QSize kMinimumListSize(320, 200);

// See "Wordings that look wrong" in docs/odd-on-purpose.md.
QString drive_text(const Drive& drive)
{
    return SelectDrivePage::tr("Device: %1\nModel Number: %2\nSerial Number: %3\n"
                               "Sectors: %4 (%5  bytes)\nSector Size: %6")
        .arg(QString::fromLatin1(drive.device()), QString::fromLatin1(drive.model()),
             QString::fromLatin1(drive.serial()), QString::number(drive.sectors()),
             QString::number(drive.sectors() * drive.sectorSize()),
             QString::number(drive.sectorSize()));
}

} // namespace

SelectDrivePage::SelectDrivePage(QWidget* parent)
    : QWizardPage(parent), list_(new QListWidget(this))
{
    setTitle(tr("Select Drive"));
    list_->setMinimumSize(kMinimumListSize);
    // Made in the order in which Tab goes through them.
    auto* refreshButton = new QPushButton(tr("&Refresh List"), this);
    viewButton_ = new QPushButton(tr("&View Sectors"), this);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(refreshButton);
    buttons->addWidget(viewButton_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(list_);
    layout->addLayout(buttons);
    connect(refreshButton, &QPushButton::clicked, this, &SelectDrivePage::refresh);
    connect(viewButton_, &QPushButton::clicked, this, &SelectDrivePage::view);
}

void SelectDrivePage::initializePage()
{
    refresh();
}

bool SelectDrivePage::isComplete() const
{
    return list_->count() > 0;
}

bool SelectDrivePage::validatePage()
{
    const Drive* drive = currentDrive();
    if (drive == nullptr) {
        return false;
    }
    select_drive(wizard(), *drive);
    return true;
}

void SelectDrivePage::showEvent(QShowEvent* event)
{
    list_->setFocus(Qt::OtherFocusReason);
    QWizardPage::showEvent(event);
}

void SelectDrivePage::refresh()
{
    list_->clear();
    drives_ = get_drives();
    for (const Drive& drive : drives_) {
        list_->addItem(drive_text(drive));
    }
    list_->setCurrentRow(drives_.empty() ? -1 : 0);
    viewButton_->setEnabled(!drives_.empty());
    emit completeChanged();
}

void SelectDrivePage::view()
{
    if (const Drive* drive = currentDrive()) {
        (new Viewer(*drive, this))->show();
    }
}

const Drive* SelectDrivePage::currentDrive() const
{
    const int row = list_->currentRow();
    if (row < 0 || row >= static_cast<int>(drives_.size())) {
        return nullptr;
    }
    return &drives_[static_cast<std::size_t>(row)];
}
