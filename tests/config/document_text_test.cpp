#include "app/debug_log.h"
#include "config/load.h"
#include "config/save.h"

#include <QRegularExpression>
#include <QTest>

using config::Value;

/// What the reader takes and refuses, and what the writer makes of a value.
class DocumentTextTest : public QObject {
    Q_OBJECT
private slots:
    void reads_data();
    void reads();
    void writes();
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
    good("members may end with a comma", R"({"b":1,"a":[],})", R"({"a":[],"b":1})");
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
    bad("the wrong bracket", R"({"a":[1}})", 3);
    bad("a word that goes on", "[truex]", 2);
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

QTEST_APPLESS_MAIN(DocumentTextTest)
#include "document_text_test.moc"
