#include "config/save.h"

#include <string_view>

namespace config {

namespace {

// Bytes that have an escape of their own, and its letter. "/" has none.
// See "How text is written" in docs/odd-on-purpose.md.
constexpr std::string_view kEscapedBytes = "\b\t\n\f\r\"\\";
constexpr std::string_view kEscapeLetters = "btnfr\"\\";

constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::string_view kIndent = "  ";

/// Collects the text of a tree. Depths count the lists and objects around a place.
class Writer {
public:
    explicit Writer(bool pretty) : pretty_(pretty) {}

    void write(const Value& value, int depth);
    void writeMembers(const Value::Members& members, int depth);
    [[nodiscard]] const std::string& text() const { return text_; }

private:
    void writeObject(const Value::Members& members, int depth);
    void writeList(const Value::Elements& elements, int depth);
    void writeString(const std::string& bytes);
    void writeByte(char byte);
    void open(char bracket);
    void close(char bracket, bool empty, int depth);
    void startItem(bool first, int depth);
    void lineFeed();
    void indent(int depth);

    bool pretty_;
    std::string text_;
};

void Writer::write(const Value& value, int depth)
{
    switch (value.type()) {
    case Value::Null:
        text_ += "null";
        break;
    case Value::Boolean:
        text_ += value.boolean() ? "true" : "false";
        break;
    case Value::Number:
        text_ += std::to_string(value.number());
        break;
    case Value::String:
        writeString(value.string());
        break;
    case Value::Object:
        writeObject(value.object(), depth);
        break;
    case Value::List:
        writeList(value.list(), depth);
        break;
    }
}

void Writer::writeObject(const Value::Members& members, int depth)
{
    open('{');
    writeMembers(members, depth + 1);
    close('}', members.empty(), depth);
}

void Writer::writeMembers(const Value::Members& members, int depth)
{
    bool first = true;
    for (const auto& [key, value] : members) {
        startItem(first, depth);
        writeString(key);
        text_ += ':';
        write(value, depth);
        first = false;
    }
}

void Writer::writeList(const Value::Elements& elements, int depth)
{
    open('[');
    bool first = true;
    for (const Value& element : elements) {
        startItem(first, depth + 1);
        write(element, depth + 1);
        first = false;
    }
    close(']', elements.empty(), depth);
}

void Writer::writeString(const std::string& bytes)
{
    text_ += '"';
    for (const char byte : bytes) {
        writeByte(byte);
    }
    text_ += '"';
}

void Writer::writeByte(char byte)
{
    const std::size_t index = kEscapedBytes.find(byte);
    if (index != std::string_view::npos) {
        text_ += '\\';
        text_ += kEscapeLetters[index];
    } else if (byte >= 0x20 && byte <= 0x7E) {
        text_ += byte;
    } else {
        const auto number = static_cast<unsigned char>(byte);
        text_ += "\\x";
        text_ += kHexDigits[number / 16];
        text_ += kHexDigits[number % 16];
    }
}

void Writer::open(char bracket)
{
    text_ += bracket;
    lineFeed();
}

/// An empty object or list, too, has its closing bracket on a line of its own.
/// See "How text is written" in docs/odd-on-purpose.md.
void Writer::close(char bracket, bool empty, int depth)
{
    if (!empty) {
        lineFeed();
    }
    indent(depth);
    text_ += bracket;
}

void Writer::startItem(bool first, int depth)
{
    if (!first) {
        text_ += ',';
        lineFeed();
    }
    indent(depth);
}

void Writer::lineFeed()
{
    if (pretty_) {
        text_ += '\n';
    }
}

void Writer::indent(int depth)
{
    for (int level = 0; pretty_ && level < depth; ++level) {
        text_ += kIndent;
    }
}

} // namespace

std::string save(const Value& value, bool bare, bool pretty)
{
    Writer writer(pretty);
    if (bare && value.type() == Value::Object && !value.object().empty()) {
        writer.writeMembers(value.object(), 0);
    } else {
        writer.write(value, 0);
    }
    return writer.text();
}

} // namespace config
