#include "tools/selected_drive.h"

Drive sDrive;
