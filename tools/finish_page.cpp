#include "tools/finish_page.h"

#include "app/system_command.h"
#include "tools/horizontal_line.h"

#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

FinishPage::FinishPage(QWidget* parent) : QWizardPage(parent)
{
    setTitle(tr("All Done"));
    auto* restartButton = new QPushButton(tr("&Restart Computer"), this);
    auto* shutdownButton = new QPushButton(tr("&Shutdown Computer"), this);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Please select what to do next"), this));
    layout->addWidget(horizontal_line(this));
    layout->addWidget(restartButton);
    layout->addWidget(shutdownButton);
    connect(restartButton, &QPushButton::clicked, this, &FinishPage::restartComputer);
    connect(shutdownButton, &QPushButton::clicked, this, &FinishPage::shutdownComputer);
}

void FinishPage::restartComputer()
{
    system_reboot();
}

void FinishPage::shutdownComputer()
{
    system_halt();
}
