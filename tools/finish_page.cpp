#include "tools/finish_page.h"

#include "app/display/system_command.h"
#include "tools/horizontal_line.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

FinishPage::FinishPage(QWidget* parent) : QWizardPage(parent)
{
    setTitle(tr("All Done"));
    auto* restartButton = new QPushButton(tr("&Restart Computer"), this);
    auto* shutdownButton = new QPushButton(tr("&Shutdown Computer"), this);
    for (QPushButton* button : {restartButton, shutdownButton}) {
        button->setAutoDefault(false);
    }
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Please select what to do next"), this));
    layout->addWidget(horizontal_line(this));
    layout->addWidget(restartButton);
    layout->addWidget(shutdownButton);
    connect(restartButton, &QPushButton::clicked, this, &FinishPage::restartComputer);
    connect(shutdownButton, &QPushButton::clicked, this, &FinishPage::shutdownComputer);
}

// Enter ends the wizard; it does not restart the computer.
void FinishPage::showEvent(QShowEvent* event)
{
    QWizardPage::showEvent(event);
    wizard()->button(QWizard::FinishButton)->setFocus(Qt::OtherFocusReason);
}

void FinishPage::restartComputer()
{
    system_reboot();
}

void FinishPage::shutdownComputer()
{
    system_halt();
}
