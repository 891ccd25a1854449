#include "tools/welcome_page.h"

#include "app/base/program_config.h"

#include <QLabel>
#include <QVBoxLayout>

WelcomePage::WelcomePage(QWidget* parent) : QWizardPage(parent)
{
    setTitle(tr("Welcome to %1").arg(QString::fromLatin1(theProgramConfig().name())));
    setPixmap(QWizard::WatermarkPixmap, QPixmap(QStringLiteral(":/app.png")));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("This wizard will let you select a drive,\n"
                                    "then view or wipe sectors on this drive."),
                                 this));
}
