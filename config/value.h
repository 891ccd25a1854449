#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace config {

/// One value of a document: null, a boolean, a 64-bit integer, a byte string, an object
/// (members by key) or a list. A value owns its children outright; a copy is deep.
///
/// All alternatives stand side by side and the type says which one counts. A setter or an
/// assignment writes the type and the one alternative that belongs to it; the others keep
/// what they held, unreachable until the type comes back. Copies carry them along.
///
/// Keys are whole member names, compared byte by byte; a dot or a slash means nothing.
///
/// Two kinds of failure, both logged under "config" before they are thrown:
/// - config::Exception: a missing key or a member of the wrong type, where the function
///   says so. The data is at fault.
/// - std::runtime_error "config(number)": a plain reader of the wrong type, keyed access to
///   something that is no object, get() meeting a member of the wrong type. The program is
///   at fault; the number tells which check failed.
class Value {
public:
    enum class Type : int { Null, Boolean, Number, String, Object, List };
    using enum Type;

    // The standard promises containers of an incomplete type for vector only. For map it
    // holds in libstdc++ and libc++: the class is a root of pointers, and the nodes, which
    // do hold a Value, are touched only in member functions, when Value is complete.
    using Members = std::map<std::string, Value>; ///< In ascending byte order of the keys.
    using Elements = std::vector<Value>;

    Value(Type type = Object) : type_(type) {}
    Value(const Value&) = default;
    Value(Value&&) noexcept = default;
    ~Value() = default;

    [[nodiscard]] Type type() const { return type_; }

    // Plain readers of this value, which must have the type that the name says.

    [[nodiscard]] bool boolean() const;
    [[nodiscard]] std::int64_t number() const;
    [[nodiscard]] const std::string& string() const;
    [[nodiscard]] const Members& object() const;
    [[nodiscard]] const Elements& list() const;

    // Keyed readers. This value must be an object. All but has() and get() throw
    // config::Exception when the key is missing.

    [[nodiscard]] bool has(const char* key) const;
    [[nodiscard]] const Value& operator[](const char* key) const;

    /// The member, of type `type`; config::Exception when it has another one.
    [[nodiscard]] const Value& value(const char* key, Type type) const;
    [[nodiscard]] bool boolean(const char* key) const;
    [[nodiscard]] std::int64_t number(const char* key) const;
    [[nodiscard]] const std::string& string(const char* key) const;
    [[nodiscard]] const Members& object(const char* key) const;
    [[nodiscard]] const Elements& list(const char* key) const;

    /// Stores the member in `out`, or returns false and leaves `out` alone when the key is
    /// missing. A narrow integer receives the low bits of the number, unchecked.
    /// See "Numbers have no range" in docs/odd-on-purpose.md.
    bool get(const char* key, bool& out) const;
    bool get(const char* key, std::string& out) const;
    bool get(const char* key, int& out) const { return getNumber(key, out); }
    bool get(const char* key, long& out) const { return getNumber(key, out); }
    bool get(const char* key, long long& out) const { return getNumber(key, out); }
    bool get(const char* key, unsigned int& out) const { return getNumber(key, out); }
    bool get(const char* key, unsigned long& out) const { return getNumber(key, out); }
    bool get(const char* key, unsigned long long& out) const { return getNumber(key, out); }

    // Setters and assignments. Each returns this value.

    Value& setNull();
    Value& setBoolean(bool boolean);
    Value& setNumber(long long number);
    Value& setString(const std::string& bytes);
    Value& setObject(Members members);
    Value& setList(Elements elements);

    /// Takes over every alternative. `other` may be a part of this very value.
    Value& operator=(Value other) noexcept;
    // NOLINTBEGIN(misc-unconventional-assign-operator): the setters do return *this.
    Value& operator=(bool boolean) { return setBoolean(boolean); }
    Value& operator=(int number) { return setNumber(number); }
    Value& operator=(long number) { return setNumber(number); }
    Value& operator=(long long number) { return setNumber(number); }
    Value& operator=(unsigned int number) { return setNumber(number); }
    Value& operator=(unsigned long number) { return setNumber(static_cast<long long>(number)); }
    /// Keeps all 64 bits: 2^63 and above read back as negative, and get() gives the same bits.
    Value& operator=(unsigned long long number)
    {
        return setNumber(static_cast<long long>(number));
    }
    Value& operator=(const std::string& bytes) { return setString(bytes); }
    /// Takes the bytes up to the terminating zero.
    Value& operator=(const char* bytes) { return setString(bytes); }
    Value& operator=(Members members) { return setObject(std::move(members)); }
    Value& operator=(Elements elements) { return setList(std::move(elements)); }
    // NOLINTEND(misc-unconventional-assign-operator)

    // Keyed writers. This value must be an object.

    /// The member, which is inserted as an empty object when it is missing.
    Value& operator[](const char* key);

    /// Assigns to the member, which is inserted when it is missing.
    void set(const char* key, bool boolean) { (*this)[key] = boolean; }
    void set(const char* key, int number) { (*this)[key] = number; }
    void set(const char* key, long number) { (*this)[key] = number; }
    void set(const char* key, long long number) { (*this)[key] = number; }
    void set(const char* key, unsigned int number) { (*this)[key] = number; }
    void set(const char* key, unsigned long number) { (*this)[key] = number; }
    void set(const char* key, unsigned long long number) { (*this)[key] = number; }
    void set(const char* key, const std::string& bytes) { (*this)[key] = bytes; }
    void set(const char* key, const char* bytes) { (*this)[key] = bytes; }

private:
    void require(Type type, int check) const;
    [[nodiscard]] const Value* find(const char* key) const;

    template <typename Integer>
    bool getNumber(const char* key, Integer& out) const
    {
        const Value* member = find(key);
        if (member) {
            out = static_cast<Integer>(member->number());
        }
        return member != nullptr;
    }

    Type type_;
    bool boolean_ = false;
    // Of a number that was never set. See "Numbers have no range" in docs/odd-on-purpose.md.
    std::int64_t number_ = -1;
    std::string string_;
    Members object_;
    Elements list_;
};

} // namespace config
