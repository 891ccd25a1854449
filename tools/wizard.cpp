#include "tools/wizard.h"

#include "tools/finish_page.h"
#include "tools/format_page.h"
#include "tools/select_drive_page.h"
#include "tools/welcome_page.h"
#include "tools/wipe_drive_page.h"

Wizard::Wizard(QWidget* parent) : QWizard(parent)
{
    setWindowTitle(tr("Wizard"));
    addPage(new WelcomePage(this));
    addPage(new SelectDrivePage(this));
    addPage(new WipeDrivePage(this));
    addPage(new FormatPage(this));
    addPage(new FinishPage(this));
    // See "No Cancel in the wizard" in docs/odd-on-purpose.md.
    setOptions(QWizard::NoBackButtonOnStartPage | QWizard::NoCancelButton);
}
