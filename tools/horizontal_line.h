#pragma once

class QFrame;
class QWidget;

/// A sunken horizontal line between the parts of a page.
[[nodiscard]] QFrame* horizontal_line(QWidget* parent);
