#include "app/base/debug_log.h"
#include "config/load.h"
#include "config/save.h"

#include <QRegularExpression>
#include <QTest>

#include <random>

using config::Value;

/// What the reader takes and refuses, and what the writer makes of a value.
class DocumentTextTest : public QObject {
    Q_OBJECT
private slots:
    void reads_data();
    void reads();
    void writes();
    void readsAnyBytes();
};

// `tree` is the compact text of what was stored. An error writes `logLines` lines: one, and
// one for each list or object around the place.
void DocumentTextTest::reads_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("tree");
    QTest::addColumn<int>("logLines");
    using Text = const QByteArray&;
    const auto bad = [](const char* name, Text text, int logLines, Text tree = "null") {
        QTest::newRow(name) << text << tree << logLines;
    };
    const auto good = [bad](const char* name, Text text, Text tree) { bad(name, text, 0, tree); };
    const auto lists = [](int depth) { return QByteArray(depth, '[') + QByteArray(depth, ']'); };
    const int limit = config::kMaxDepth;
    good("bare members may end with a comma", R"("a":1,)", R"({"a":1})");
    good("the later of two members counts", R"({"a":1,"a":"2"})", R"({"a":"2"})");
    good("words and nesting", " [null,true,false,[{}]]\r\n", "[null,true,false,[{}]]");
    good("comments", "/*/ [ */[//]\n1/**/,//\n2] // end", "[1,2]");
    good("numbers wrap around", "[9223372036854775808,-18446744073709551617]",
         "[-9223372036854775808,-1]");
    good("every escape", R"(["\u0000\"\\\/\b\f\n\r\t\x41\xfF\u0041\u00e9\u20AC\ud83d"])",
         R"(["\x00\"\\/\b\f\n\r\tA\xffA\xc3\xa9\xe2\x82\xac\xed\xa0\xbd"])");
    good("raw bytes and leading zeros", "[\"\n\x7f\x80'\",007]", R"(["\n\x7f\x80'",7])");
    const QByteArray objects = QByteArray("{\"a\":").repeated(limit) + "1" + QByteArray(limit, '}');
    const QByteArray deepPair = "[" + lists(limit - 1) + "," + lists(limit - 1) + "]";
    good("two deepest lists side by side", deepPair, deepPair);
    good("the deepest object", objects, objects);
    bad("a list too deep", lists(limit + 1), limit + 1);
    bad("a member too deep", "\"a\":" + lists(limit), limit + 1);
    bad("only a comment", "   // only a comment", 1);
    bad("a minus alone", "[- 1]", 2);
    bad("a list may not end with a comma", "[1,]", 2);
    bad("a missing comma", "[1 2]", 2);
    bad("a fraction", "[1.5]", 2);
    bad("an open block comment", "[1/*]", 2);
    bad("something behind the tree, which is stored", "{} x", 1, "{}");
    bad("something behind bare members, which are stored", R"("a":1,])", 1, R"({"a":1})");
}

void DocumentTextTest::reads()
{
    QFETCH(QByteArray, text);
    QFETCH(int, logLines);
    dbg_init(DBG_TYPE_STRING, 1);
    const qsizetype logSize = dbg_string().size();
    Value value(Value::Null);
    const char* end = nullptr;
    QCOMPARE(config::load(value, text.constData(), &end), logLines == 0);
    QVERIFY(logLines > 0 || *end == '\0' || QByteArray(end) == "// end");
    QTEST(QByteArray::fromStdString(config::save(Value(value), false, false)), "tree");
    const QString log = dbg_string().mid(logSize);
    QVERIFY(QRegularExpression("^(config\\(\\d+\\)\n)*$").match(log).hasMatch());
    QCOMPARE(log.count('\n'), logLines);
}

void DocumentTextTest::writes()
{
    Value value;
    value.set("b", 1);
    value["a"].setList({});
    QCOMPARE(config::save(value, false, true), "{\n  \"a\":[\n  ],\n  \"b\":1\n}");
    QCOMPARE(config::save(value, true, true), "\"a\":[\n],\n\"b\":1");
    QCOMPARE(config::save(Value(), true, false), "{}");
    value = Value::Elements{value, Value(static_cast<Value::Type>(6))};
    QCOMPARE(config::save(value, true, true),
             "[\n  {\n    \"a\":[\n    ],\n    \"b\":1\n  },\n  \n]");
    value = std::string("\0\xff/\t\x1f~\x7f", 7);
    QCOMPARE(config::save(value, false, false), R"("\x00\xff/\t\x1f~\x7f")");
}

// The same inputs in every run: any bytes are read without a crash, and a tree that was read
// is written and read again as the same tree.
void DocumentTextTest::readsAnyBytes()
{
    const QByteArrayList snippets =
        QByteArray(
            "{ } } [ ] ] , , : \"a\": \"b\":[ \" \\ null true -12 // \n /* */ \"\\x4f\\u20ac "
            "[1,[2]], {\"k\":0} \"\xc3\xa9\", 1,[[[[[ ]]]]] {\"\": 9223372036854775808,")
            .split(' ');
    dbg_init("/dev/null", 1);
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
        // Of the exact size, so that the address sanitizer sees a read behind the zero.
        const std::vector<char> exact(text.constData(), text.constData() + qstrlen(text) + 1);
        Value value(Value::Null);
        const char* end = nullptr;
        const bool loaded = config::load(value, exact.data(), &end);
        QVERIFY(end >= exact.data() && end <= &exact.back());
        QVERIFY(!loaded || value.type() != Value::Null);
        for (const int layout : {0, 1, 2, 3}) {
            const std::string saved = config::save(value, (layout & 1) != 0, layout > 1);
            Value again(Value::Null);
            QCOMPARE(config::load(again, saved.c_str(), nullptr), value.type() != Value::Null);
            QCOMPARE(config::save(again, (layout & 1) != 0, layout > 1), saved);
        }
    }
}

QTEST_APPLESS_MAIN(DocumentTextTest)
#include "document_text_test.moc"
