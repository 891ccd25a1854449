#include "erase/pattern.h"

#include <QTest>

/// Pattern text and bytes, and what a wipe writes over a sector.
class PatternTest : public QObject {
    Q_OBJECT
private slots:
    void fromText_data();
    void fromText();
    void toTextAndBack();
    void fills();
};

void PatternTest::fromText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char* name, const QByteArray& text, const QByteArray& bytes) {
        QTest::newRow(name) << text << bytes;
    };
    row("plain text", "VANTRELLE", "VANTRELLE");
    row("any byte by escape", R"(\x00\xff)", QByteArray("\0\xff", 2));
    row("no text", "", "");
    row("an unknown escape", R"(\q)", "");
    row("a bad hex digit", R"(ab\x0g)", "");
    row("a backslash at the end", R"(ab\)", "");
    row("a double quote", R"(a"b)", "");
    row("a second pattern", R"(a","pattern":"b)", "b");
    row("a second pattern that is no string", R"(a","pattern":[1],"x":")", "");
    row("no end of lists", R"(a","x":)" + QByteArray(100'000, '['), "");
}

void PatternTest::fromText()
{
    QFETCH(QByteArray, text);
    QTEST(QByteArray::fromStdString(pattern_from_text(text.constData())), "bytes");
}

void PatternTest::toTextAndBack()
{
    QCOMPARE(pattern_to_text(std::string("\0A\"", 3)), R"(\x00A\")");
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
        allBytes.push_back(static_cast<char>(byte));
    }
    QCOMPARE(pattern_from_text(pattern_to_text(allBytes).c_str()), allBytes);
}

void PatternTest::fills()
{
    const auto filled = [](const std::string& pattern, unsigned count) {
        std::string twoSectors(10, '.');
        const void* bytes = pattern.empty() ? nullptr : pattern.data();
        pattern_fill_sectors(twoSectors.data(), 5, bytes, unsigned(pattern.size()), count);
        return twoSectors;
    };
    QCOMPARE(filled("AB", 0), "..........");
    QCOMPARE(filled("AB", 1), "ABABA.....");
    QCOMPARE(filled("AB", 2), "ABABAABABA");
    QCOMPARE(filled("ABCDEFG", 2), "ABCDEABCDE");
    QCOMPARE(filled("", 2), std::string(10, '\0'));
}

QTEST_APPLESS_MAIN(PatternTest)
#include "pattern_test.moc"
