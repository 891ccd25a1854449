#pragma once

#include "storage/drive.h"

class QWizard;

/// The drive that was chosen last, in whichever wizard.
extern Drive sDrive;

/// Chooses a drive in a wizard; it becomes sDrive, too. Without a wizard (null) only that.
void select_drive(QWizard* wizard, const Drive& drive);

/// The drive that was chosen in this wizard, whatever another one chose since; sDrive when there
/// is none.
[[nodiscard]] Drive selected_drive(const QWizard* wizard);
