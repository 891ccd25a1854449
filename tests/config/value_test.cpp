#include "app/base/debug_log.h"
#include "config/exception.h"
#include "config/value.h"

#include <QRegularExpression>
#include <QTest>

using config::Value;
using Access = void (*)(Value&);

class ValueTest : public QObject {
    Q_OBJECT
private slots:
    void numbersKeepTheirLowBits()
    {
        QCOMPARE(Value(Value::Number).number(), -1); // never set
        Value value;
        QCOMPARE((value["n"] = -2).number(), -2);
        QCOMPARE((value["n"] = 0xFFFFFFFFUL).number(), 0xFFFFFFFF);
        QCOMPARE((value["n"] = 18446744073709551615ULL).number(), -1);
        value.set("n", 4294967296LL + 5);
        int narrow = 1;
        unsigned long long wide = 1;
        QVERIFY(value.get("n", narrow) && value.get("n", wide) && !value.get("missing", wide));
        QVERIFY(narrow == 5 && wide == 4294967301ULL);
    }

    void copiesAreDeepAndPartsReplaceTheirWhole()
    {
        Value value;
        value["a"]["b"] = "inner";
        const Value copy = value;
        value["a"]["b"] = 1;
        QCOMPARE(copy["a"].string("b"), "inner");
        value = value["a"]["b"];
        QCOMPARE(value.number(), 1);
    }

    void failures()
    {
        static int kept = 0;
        const char* const misuse = R"(misuse config\(\d+\))";
        // A dot is no path.
        check("lookup \"a.b\" is not found", [](Value& v) { (void)v.value("a.b", {}); });
        check("lookup \"s\" is String, not Number", [](Value& v) { (void)v.number("s"); });
        check(misuse, [](Value& v) { (void)v.list(); });
        check(misuse, [](Value& v) { (void)v.get("s", kept); });
        check(misuse, [](Value& v) { v["s"]["x"] = 1; });
    }

private:
    static void check(const QString& message, Access access)
    {
        Value value;
        value.set("s", "text");
        value["a"]["b"] = true;
        dbg_init(DBG_TYPE_STRING, 1);
        QString thrown;
        try {
            access(value);
        } catch (const config::Exception& exception) {
            thrown = QString("lookup ") + exception.what();
        } catch (const std::runtime_error& error) {
            thrown = QString("misuse ") + error.what();
        }
        const QRegularExpression expected("^" + message + "$");
        QVERIFY2(expected.match(thrown).hasMatch(), qPrintable(thrown));
        QVERIFY2(dbg_string().endsWith("): " + thrown.mid(7) + "\n"), qPrintable(dbg_string()));
        QVERIFY(value.string("s") == "text" && value.object().size() == 2);
    }
};

QTEST_APPLESS_MAIN(ValueTest)
#include "value_test.moc"
