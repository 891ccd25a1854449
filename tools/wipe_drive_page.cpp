#include "tools/wipe_drive_page.h"

#include "tools/selected_drive.h"
#include "tools/wipe_widget.h"

#include <QVBoxLayout>

WipeDrivePage::WipeDrivePage(QWidget* parent)
    : QWizardPage(parent), wipeWidget_(new WipeWidget(this))
{
    setTitle(tr("Wipe Drive"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(wipeWidget_);
}

void WipeDrivePage::initializePage()
{
    wipeWidget_->setDrive(selected_drive(wizard()));
}
