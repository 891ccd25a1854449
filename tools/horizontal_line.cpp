#include "tools/horizontal_line.h"

#include <QFrame>

QFrame* horizontal_line(QWidget* parent)
{
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}
