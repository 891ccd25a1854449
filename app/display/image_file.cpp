#include "app/display/image_file.h"

#include <QBuffer>
#include <QFile>
#include <QImage>

// Encoded in memory first: writing the file itself, the toolkit leaves the last bytes
// unchecked, and a picture cut off by a full disk would pass for a whole one.
bool save_image_file(const QImage& image, const QString& path, const QString& format)
{
    QBuffer encoded;
    QFile file(path);
    return encoded.open(QIODevice::WriteOnly) &&
           image.save(&encoded, format.toLatin1().constData()) && file.open(QIODevice::WriteOnly) &&
           file.write(encoded.data()) == encoded.size() && file.flush();
}
