#include "diskservice/source/device_text.h"

#include <QByteArray>

QString device_text(const std::string& bytes)
{
    const QByteArray raw = QByteArray::fromStdString(bytes);
    return raw.isValidUtf8() ? QString::fromUtf8(raw) : QString::fromLatin1(raw);
}
