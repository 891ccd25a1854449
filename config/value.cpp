#include "config/value.h"

#include "config/debug_line.h"
#include "config/exception.h"

#include <stdexcept>

namespace config {

namespace {

const char* const DBG_MODULE = "config";

/// For messages only.
const char* type_name(Value::Type type)
{
    switch (type) {
    case Value::Null:
        return "Null";
    case Value::Boolean:
        return "Boolean";
    case Value::Number:
        return "Number";
    case Value::String:
        return "String";
    case Value::Object:
        return "Object";
    case Value::List:
        return "List";
    }
    return "Unknown";
}

[[noreturn]] void lookup_failure(const std::string& message)
{
    dbg_line(DBG_MODULE, __LINE__, ": " + message);
    throw Exception(message);
}

[[noreturn]] void not_found(const char* key)
{
    lookup_failure("\"" + std::string(key) + "\" is not found");
}

} // namespace

/// The checks are numbered by their source line.
void Value::require(Type type, int check) const
{
    if (type_ == type) {
        return;
    }
    const std::string text = "config(" + std::to_string(check) + ")";
    dbg_line(DBG_MODULE, __LINE__, ": " + text);
    throw std::runtime_error(text);
}

bool Value::boolean() const
{
    require(Boolean, __LINE__);
    return boolean_;
}

std::int64_t Value::number() const
{
    require(Number, __LINE__);
    return number_;
}

const std::string& Value::string() const
{
    require(String, __LINE__);
    return string_;
}

const Value::Members& Value::object() const
{
    require(Object, __LINE__);
    return object_;
}

const Value::Elements& Value::list() const
{
    require(List, __LINE__);
    return list_;
}

/// The member, or nullptr when the key is missing.
const Value* Value::find(const char* key) const
{
    require(Object, __LINE__);
    const auto member = object_.find(key);
    return member == object_.end() ? nullptr : &member->second;
}

bool Value::has(const char* key) const
{
    return find(key) != nullptr;
}

const Value& Value::operator[](const char* key) const
{
    const Value* member = find(key);
    if (!member) {
        not_found(key);
    }
    return *member;
}

const Value& Value::value(const char* key, Type type) const
{
    const Value& member = (*this)[key];
    if (member.type_ != type) {
        lookup_failure("\"" + std::string(key) + "\" is " + type_name(member.type_) + ", not " +
                       type_name(type));
    }
    return member;
}

bool Value::boolean(const char* key) const
{
    return value(key, Boolean).boolean_;
}

std::int64_t Value::number(const char* key) const
{
    return value(key, Number).number_;
}

const std::string& Value::string(const char* key) const
{
    return value(key, String).string_;
}

const Value::Members& Value::object(const char* key) const
{
    return value(key, Object).object_;
}

const Value::Elements& Value::list(const char* key) const
{
    return value(key, List).list_;
}

bool Value::get(const char* key, bool& out) const
{
    const Value* member = find(key);
    if (member) {
        out = member->boolean();
    }
    return member != nullptr;
}

bool Value::get(const char* key, std::string& out) const
{
    const Value* member = find(key);
    if (member) {
        out = member->string();
    }
    return member != nullptr;
}

Value& Value::setNull()
{
    type_ = Null;
    return *this;
}

Value& Value::setBoolean(bool boolean)
{
    type_ = Boolean;
    boolean_ = boolean;
    return *this;
}

Value& Value::setNumber(long long number)
{
    type_ = Number;
    number_ = number;
    return *this;
}

Value& Value::setString(const std::string& bytes)
{
    type_ = String;
    string_ = bytes;
    return *this;
}

// Containers come by value: what is assigned may lie inside the container it replaces.

Value& Value::setObject(Members members)
{
    type_ = Object;
    object_ = std::move(members);
    return *this;
}

Value& Value::setList(Elements elements)
{
    type_ = List;
    list_ = std::move(elements);
    return *this;
}

Value& Value::operator=(Value other) noexcept
{
    type_ = other.type_;
    boolean_ = other.boolean_;
    number_ = other.number_;
    string_.swap(other.string_);
    object_.swap(other.object_);
    list_.swap(other.list_);
    return *this;
}

Value& Value::operator[](const char* key)
{
    require(Object, __LINE__);
    return object_[key];
}

} // namespace config
