#pragma once

#include "storage/drive.h"

#include <QString>
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

/// Writes the picture that tells that a drive was erased, or partially erased when the wipe
/// was stopped before its end: an 800 by 600 PNG under a unique name in the library
/// directory. It stays there for the format job. Returns its absolute path, or a null string
/// after setting `*error` (unless null) to a translated message.
[[nodiscard]] QString create_postwipe_image_file(const Drive& drive, bool partial, QString* error);
