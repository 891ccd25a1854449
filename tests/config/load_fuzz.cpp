#include "app/debug_log.h"
#include "config/load.h"
#include "config/save.h"

#include <QByteArrayList>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>

// A fuzzer's check: any bytes are read without a crash, and a tree that was read is written
// and read again as the same tree. A fault ends the program. libFuzzer brings its own main();
// ours makes the same inputs in every run.

namespace {

using config::Value;

/// Only the alternative that the type names counts.
bool same(const Value& a, const Value& b)
{
    const auto sameMember = [](const auto& left, const auto& right) {
        return left.first == right.first && same(left.second, right.second);
    };
    const auto both = [&](Value::Type type) { return a.type() == type && b.type() == type; };
    return both(Value::Null) || (both(Value::Boolean) && a.boolean() == b.boolean()) ||
           (both(Value::Number) && a.number() == b.number()) ||
           (both(Value::String) && a.string() == b.string()) ||
           (both(Value::Object) && std::ranges::equal(a.object(), b.object(), sameMember)) ||
           (both(Value::List) && std::ranges::equal(a.list(), b.list(), same));
}

bool survives(const Value& value, bool bare, bool pretty)
{
    Value again(Value::Null);
    return config::load(again, config::save(value, bare, pretty).c_str(), nullptr) &&
           same(value, again);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    dbg_init("/dev/null", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Of the exact size, so that the address sanitizer sees a read behind the zero.
    const auto length = static_cast<std::size_t>(std::find(data, data + size, 0) - data);
    const auto text = std::make_unique<char[]>(length + 1);
    std::copy_n(data, length, text.get());
    Value value(Value::Null);
    const char* end = nullptr;
    const bool loaded = config::load(value, text.get(), &end);
    const bool stored = value.type() != Value::Null;
    bool right = end >= text.get() && end <= text.get() + length && (stored || !loaded);
    for (const int layout : {0, 1, 2, 3}) {
        right = right && (!stored || survives(value, (layout & 1) != 0, layout > 1));
    }
    if (!right) {
        std::abort();
    }
    return 0;
}

#ifndef VANTRELLE_LIBFUZZER
int main(int argc, char** argv)
{
    const QByteArrayList snippets =
        QByteArray(
            "{ } } [ ] ] , , : \"a\": \"b\":[ \" \\ null true -12 // \n /* */ \"\\x4f\\u20ac "
            "[1,[2]], {\"k\":0} \"\xc3\xa9\", 1,[[[[[ ]]]]] {\"\": 9223372036854775808,")
            .split(' ');
    LLVMFuzzerInitialize(&argc, &argv);
    std::mt19937 random(1);
    const auto below = [&random](qsizetype limit) { return qsizetype(random() % unsigned(limit)); };
    for (int input = 0; input < 20'000; ++input) {
        QByteArray text = below(2) == 0 ? "[" : "\"k\":";
        for (auto count = below(12); count > 0; --count) {
            text += snippets[below(snippets.size())];
        }
        if (below(4) == 0) {
            text[below(text.size())] = static_cast<char>(below(256));
        }
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()),
                               std::size_t(text.size()));
    }
    return 0;
}
#endif
