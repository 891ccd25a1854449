#pragma once

#include "storage/drive.h"

/// The drive chosen in the wizard: written by the selection page when it is left forwards,
/// read by the pages behind it.
extern Drive sDrive;
