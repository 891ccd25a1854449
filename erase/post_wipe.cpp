#include "erase/post_wipe.h"

#include "ui_post_wipe.h"

PostWipe::PostWipe(const QString& html, QWidget* parent)
    : QWidget(parent), ui(std::make_unique<Ui_PostWipe>())
{
    ui->setupUi(this);
    ui->label->setText(html);
}

PostWipe::~PostWipe() = default;
