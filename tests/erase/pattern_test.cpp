#include "erase/pattern/pattern.h"

#include <QTest>

#include <numeric>

class PatternTest : public QObject {
    Q_OBJECT

private slots:
    void readsText()
    {
        const QByteArray bracket(100'000, '[');
        for (const auto& [text, bytes] : std::initializer_list<std::pair<QByteArray, QByteArray>>{
                 {"V\\x00\\xff", QByteArray("V\0\xff", 3)},
                 {"ab\\x0g", ""},
                 {"ab\\", ""},
                 {"a\",\"pattern\":\"b", "b"},         // it leaves its quotes
                 {"a\",\"pattern\":[1],\"x\":\"", ""}, // a second pattern that is no string
                 {"a\",\"x\":" + bracket, ""}}) {      // no end of lists
            QCOMPARE(QByteArray::fromStdString(pattern_from_text(text.constData())), bytes);
        }
    }

    void writesTextThatIsReadBack()
    {
        QCOMPARE(pattern_to_text(std::string("\0A\"", 3)), "\\x00A\\\"");
        std::string allBytes(256, '\0');
        std::iota(allBytes.begin(), allBytes.end(), '\0');
        QCOMPARE(pattern_from_text(pattern_to_text(allBytes).c_str()), allBytes);
    }

    void fillsWithZerosWithoutAPattern()
    {
        std::string sectors(10, '.');
        pattern_fill_sectors(sectors.data(), 5, "", 0, 2);
        QCOMPARE(sectors, std::string(10, '\0'));
    }
};

QTEST_APPLESS_MAIN(PatternTest)
#include "pattern_test.moc"
