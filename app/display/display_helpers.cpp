#include "app/display/display_helpers.h"

#include "app/display/message_box.h"

#include <QLayout>
#include <QLayoutItem>
#include <QObject>
#include <QWidget>

#include <algorithm>
#include <array>
#include <cctype>
#include <iomanip>
#include <sstream>

namespace {

// Only ASCII is printable here, whatever the locale says of the upper half.
char printable(unsigned char byte)
{
    return byte < 0x80 && std::isprint(byte) != 0 ? static_cast<char>(byte) : '.';
}

void hex_dump_line(std::ostream& os, const unsigned char* bytes, unsigned count, unsigned width,
                   unsigned offset)
{
    os << std::setw(4) << offset << " | ";
    for (unsigned i = 0; i < count; ++i) {
        os << std::setw(2) << static_cast<unsigned>(bytes[i]) << ' ';
    }
    for (unsigned i = count; i < width; ++i) {
        os << "   ";
    }
    os << " | ";
    for (unsigned i = 0; i < count; ++i) {
        os << printable(bytes[i]);
    }
    os << '\n';
}

} // namespace

QString short_size_string(unsigned long long bytes)
{
    constexpr unsigned long long kStep = 1000;
    constexpr std::array kUnits{"", "KB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    while (bytes >= kStep && unit + 1 < kUnits.size()) {
        bytes /= kStep;
        ++unit;
    }
    return QString::number(bytes) + QLatin1String(kUnits.at(unit));
}

QString number_with_commas_string(long long n)
{
    QString text = QString::number(n);
    for (qsizetype position = text.size() - 3; position > 0; position -= 3) {
        text.insert(position, QLatin1Char(','));
    }
    return text;
}

QString hms_time_string(long long seconds)
{
    const auto field = [](long long value) {
        return QString(QStringLiteral("%1")).arg(value, 2, 10, QLatin1Char('0'));
    };
    const int hours = static_cast<int>(seconds / 3600);
    return QStringLiteral("%1:%2:%3")
        .arg(field(hours), field(seconds / 60 % 60), field(seconds % 60));
}

void hex_dump(std::ostream& os, const void* data, unsigned size, unsigned width)
{
    const std::ios_base::fmtflags flags = os.flags();
    os << std::hex << std::setfill('0');
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (unsigned offset = 0; offset < size;) {
        const unsigned count = std::min(width, size - offset);
        hex_dump_line(os, bytes + offset, count, width, offset);
        offset += count;
    }
    os.flags(flags);
}

std::string hex_dump(const void* data, unsigned size, unsigned width)
{
    std::ostringstream os;
    hex_dump(os, data, size, width);
    return os.str();
}

QString drive_label(const Drive& drive)
{
    return QObject::tr("<b><i>%1 / %2 (%3 sectors)</i></b>")
        .arg(QString::fromLatin1(drive.model()).toHtmlEscaped(),
             QString::fromLatin1(drive.serial()).toHtmlEscaped(), QString::number(drive.sectors()));
}

QString drive_string_short(const Drive& drive)
{
    return QObject::tr("%1 / %2").arg(short_size_string(drive.sectors() * drive.sectorSize()),
                                      QString::fromLatin1(drive.model()));
}

bool confirm_media_overwriting(QWidget* parent, const QString& title)
{
    const QString text = QObject::tr(
        "Data on this media will be overwritten!\n\nAre you sure you want to continue?");
    // See "Who asks and who does not" in docs/odd-on-purpose.md.
    return message_box::ask(parent, QMessageBox::Warning, title, text, QMessageBox::NoButton);
}

void clear_layout(QLayout* layout)
{
    while (QLayoutItem* item = layout->takeAt(0)) {
        if (QLayout* sublayout = item->layout()) {
            clear_layout(sublayout);
        }
        delete item->widget();
    }
}
