#pragma once

#include <QString>

class QImage;

/// Writes an image to a file, replacing what was there; true only when all of it was written.
/// The format is the toolkit's name for it, such as "PNG" or a file name's suffix.
[[nodiscard]] bool save_image_file(const QImage& image, const QString& path, const QString& format);
