#pragma once

#include <QWidget>

#include <memory>

class Ui_PostWipe;

/// The post-wipe picture as a widget, 800 by 600: the product's logo and a message in a box.
/// It is never shown on screen, only rendered into an image.
class PostWipe : public QWidget {
    Q_OBJECT

public:
    /// `html` is the message as toolkit rich text.
    PostWipe(const QString& html, QWidget* parent);
    ~PostWipe() override;

private:
    std::unique_ptr<Ui_PostWipe> ui;
};
