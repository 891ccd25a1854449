#include "config/load.h"

#include "config/debug_line.h"

#include <cstring>
#include <optional>
#include <string_view>

namespace config {

namespace {

const char* const DBG_MODULE = "config";

// Letters behind a backslash, and the byte that each stands for.
constexpr std::string_view kEscapeLetters = "\"\\/bfnrt";
constexpr std::string_view kEscapedBytes = "\"\\/\b\f\n\r\t";

bool is_blank(char byte)
{
    return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r';
}

bool is_digit(char byte)
{
    return byte >= '0' && byte <= '9';
}

std::optional<unsigned> hex_digit(char byte)
{
    if (is_digit(byte)) {
        return static_cast<unsigned>(byte - '0');
    }
    if (byte >= 'a' && byte <= 'f') {
        return static_cast<unsigned>(byte - 'a' + 10);
    }
    if (byte >= 'A' && byte <= 'F') {
        return static_cast<unsigned>(byte - 'A' + 10);
    }
    return std::nullopt;
}

/// Appends a code point of at most 16 bits as UTF-8 (RFC 3629, clause 3).
void append_utf8(std::string& bytes, unsigned codePoint)
{
    const auto append = [&bytes](unsigned byte) { bytes.push_back(static_cast<char>(byte)); };
    if (codePoint < 0x80) {
        append(codePoint);
        return;
    }
    if (codePoint < 0x800) {
        append(0xC0 | codePoint >> 6);
    } else {
        append(0xE0 | codePoint >> 12);
        append(0x80 | (codePoint >> 6 & 0x3F));
    }
    append(0x80 | (codePoint & 0x3F));
}

/// Reads one text from start to end. The position only moves forward and never beyond the
/// terminating zero. The functions return false after an error, which is then logged.
class Reader {
public:
    explicit Reader(const char* text) : position_(text) {}

    bool readDocument(Value& out);
    [[nodiscard]] const char* position() const { return position_; }

private:
    [[nodiscard]] bool startsWith(const char* token) const;
    bool skipPast(const char* mark);
    bool skipBlank();
    void skipBlanks();
    bool accept(const char* token);

    bool readOutermost(Value& out);
    bool readBareMembers(Value& out);
    bool readValue(Value& out);
    bool readContainer(Value& out);
    bool readList(Value& out);
    bool readObject(Value& out);
    bool readMembers(Value::Members& members);
    bool readMember(Value::Members& members);
    bool readNumber(Value& out);
    bool readString(std::string& bytes);
    bool readEscape(std::string& bytes);
    bool readHex(int digitCount, unsigned& number);

    const char* position_;
    int depth_ = 0;
};

/// Logs the place or one level around it.
bool fail(int line)
{
    dbg_line(DBG_MODULE, line, {});
    return false;
}

bool Reader::startsWith(const char* token) const
{
    return std::strncmp(position_, token, std::strlen(token)) == 0;
}

/// Moves past the end mark of the comment that starts here, if there is one.
bool Reader::skipPast(const char* mark)
{
    const std::size_t openLength = std::strlen("//");
    const char* found = std::strstr(position_ + openLength, mark);
    if (found) {
        position_ = found + std::strlen(mark);
    }
    return found != nullptr;
}

/// Moves past one blank or comment, if there is one. A comment without its end stays: "//"
/// is then the end of the text, "/*" is no token and so an error.
bool Reader::skipBlank()
{
    if (startsWith("//")) {
        return skipPast("\n");
    }
    if (startsWith("/*")) {
        return skipPast("*/");
    }
    const bool blank = is_blank(*position_);
    if (blank) {
        ++position_;
    }
    return blank;
}

/// Moves to the next token.
void Reader::skipBlanks()
{
    while (skipBlank()) {
    }
}

/// Moves past the next token if it is this one. Words are matched by their own bytes alone:
/// in "truex" the next token is "x".
bool Reader::accept(const char* token)
{
    skipBlanks();
    const bool found = startsWith(token);
    if (found) {
        position_ += std::strlen(token);
    }
    return found;
}

bool Reader::readDocument(Value& out)
{
    if (!readOutermost(out)) {
        return false;
    }
    // `out` is stored by now, and a bad rest does not undo it.
    // See "The result is stored before the rest is read" in docs/odd-on-purpose.md.
    skipBlanks();
    return *position_ == '\0' || startsWith("//") || fail(__LINE__);
}

bool Reader::readOutermost(Value& out)
{
    skipBlanks();
    return *position_ == '"' ? readBareMembers(out) : readContainer(out);
}

bool Reader::readBareMembers(Value& out)
{
    ++depth_;
    Value::Members members;
    if (!readMembers(members)) {
        return fail(__LINE__);
    }
    out.setObject(std::move(members));
    return true;
}

bool Reader::readValue(Value& out)
{
    if (accept("null")) {
        out.setNull();
    } else if (accept("true")) {
        out.setBoolean(true);
    } else if (accept("false")) {
        out.setBoolean(false);
    } else if (is_digit(*position_) || *position_ == '-') {
        return readNumber(out);
    } else if (*position_ == '"') {
        std::string bytes;
        if (!readString(bytes)) {
            return false;
        }
        out.setString(bytes);
    } else {
        return readContainer(out);
    }
    return true;
}

/// Reads a list or an object; anything else is an error, and so is one level too many.
bool Reader::readContainer(Value& out)
{
    const bool isList = *position_ == '[';
    if ((!isList && *position_ != '{') || depth_ == kMaxDepth) {
        return fail(__LINE__);
    }
    ++position_;
    ++depth_;
    if (!(isList ? readList(out) : readObject(out))) {
        return fail(__LINE__);
    }
    --depth_;
    return true;
}

bool Reader::readList(Value& out)
{
    Value::Elements elements;
    if (!accept("]")) {
        do {
            if (!readValue(elements.emplace_back())) {
                return false;
            }
        } while (accept(","));
        if (!accept("]")) {
            return fail(__LINE__);
        }
    }
    out.setList(std::move(elements));
    return true;
}

bool Reader::readObject(Value& out)
{
    Value::Members members;
    if (!readMembers(members)) {
        return false;
    }
    if (!accept("}")) {
        return fail(__LINE__);
    }
    out.setObject(std::move(members));
    return true;
}

/// Reads members as long as a comma and a key follow. The closing brace, or what stands in
/// its place, is left to the caller.
bool Reader::readMembers(Value::Members& members)
{
    do {
        skipBlanks();
        if (*position_ != '"') {
            return true;
        }
        if (!readMember(members)) {
            return false;
        }
    } while (accept(","));
    return true;
}

bool Reader::readMember(Value::Members& members)
{
    std::string key;
    if (!readString(key)) {
        return false;
    }
    if (!accept(":")) {
        return fail(__LINE__);
    }
    Value value;
    if (!readValue(value)) {
        return false;
    }
    members.insert_or_assign(std::move(key), std::move(value));
    return true;
}

bool Reader::readNumber(Value& out)
{
    const bool negative = *position_ == '-';
    if (negative) {
        ++position_;
    }
    if (!is_digit(*position_)) {
        return fail(__LINE__);
    }
    std::uint64_t number = 0; // Unsigned, for the wrap-around.
    for (; is_digit(*position_); ++position_) {
        number = number * 10 + static_cast<unsigned>(*position_ - '0');
    }
    out.setNumber(static_cast<std::int64_t>(negative ? 0 - number : number));
    return true;
}

/// Reads a string from its opening to its closing double quote.
bool Reader::readString(std::string& bytes)
{
    ++position_;
    while (*position_ != '"') {
        if (*position_ == '\0') {
            return fail(__LINE__);
        }
        const char byte = *position_++;
        if (byte != '\\') {
            bytes.push_back(byte);
        } else if (!readEscape(bytes)) {
            return false;
        }
    }
    ++position_;
    return true;
}

/// Reads what follows a backslash; a zero there is a bad escape like any other.
bool Reader::readEscape(std::string& bytes)
{
    unsigned number = 0;
    if (startsWith("x")) {
        if (!readHex(2, number)) {
            return false;
        }
        bytes.push_back(static_cast<char>(number));
        return true;
    }
    if (startsWith("u")) {
        if (!readHex(4, number)) {
            return false;
        }
        append_utf8(bytes, number);
        return true;
    }
    const std::size_t index = kEscapeLetters.find(*position_);
    if (index == std::string_view::npos) {
        return fail(__LINE__);
    }
    bytes.push_back(kEscapedBytes[index]);
    ++position_;
    return true;
}

/// Moves past the escape's letter and exactly `digitCount` hex digits.
bool Reader::readHex(int digitCount, unsigned& number)
{
    ++position_;
    for (int i = 0; i < digitCount; ++i, ++position_) {
        const std::optional<unsigned> digit = hex_digit(*position_);
        if (!digit) {
            return fail(__LINE__);
        }
        number = number * 16 + *digit;
    }
    return true;
}

} // namespace

bool load(Value& out, const char* text, const char** end)
{
    Reader reader(text);
    const bool loaded = reader.readDocument(out);
    if (end) {
        *end = reader.position();
    }
    return loaded;
}

} // namespace config
