#pragma once

#include <QFont>

/// The fixed-pitch font for log lines and sector dumps: the toolkit's first font family
/// whose name contains "mono", else the family "monospace".
[[nodiscard]] QFont ui_get_monospace_font();
