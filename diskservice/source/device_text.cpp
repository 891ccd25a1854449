#include "diskservice/source/device_text.h"

#include <QByteArray>

#include <algorithm>
#include <functional>

namespace {

constexpr std::size_t kMaxCharacters = 256;

bool is_printed(char32_t character)
{
    const QChar::Category category = QChar::category(character);
    return QChar::isPrint(character) && category != QChar::Separator_Line &&
           category != QChar::Separator_Paragraph;
}

std::u32string characters_of(const std::string& bytes)
{
    const QByteArray raw = QByteArray::fromStdString(bytes);
    return (raw.isValidUtf8() ? QString::fromUtf8(raw) : QString::fromLatin1(raw)).toStdU32String();
}

QString printable(std::u32string characters)
{
    std::ranges::replace_if(characters, std::not_fn(is_printed), U'?');
    return QString::fromStdU32String(characters);
}

} // namespace

bool is_printable(const std::string& bytes)
{
    return std::ranges::all_of(characters_of(bytes), is_printed);
}

QString printable_text(const std::string& bytes)
{
    return printable(characters_of(bytes));
}

QString device_text(const std::string& bytes)
{
    return printable(characters_of(bytes).substr(0, kMaxCharacters));
}
