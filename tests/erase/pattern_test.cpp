#include "erase/pattern.h"

#include <QTest>

#include <numeric>

class PatternTest : public QObject {
    Q_OBJECT

private slots:
    void readsText_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("bytes");
        const auto row = [](const char* name, const QByteArray& text, const QByteArray& bytes) {
            QTest::newRow(name) << text << bytes;
        };
        row("any byte by escape", "V\\x00\\xff", QByteArray("V\0\xff", 3));
        row("a bad hex digit", "ab\\x0g", "");
        row("a backslash at the end", "ab\\", "");
        row("a second pattern that is no string", "a\",\"pattern\":[1],\"x\":\"", "");
        row("no end of lists", "a\",\"x\":" + QByteArray(100'000, '['), "");
    }

    void readsText()
    {
        QFETCH(QByteArray, text);
        QTEST(QByteArray::fromStdString(pattern_from_text(text.constData())), "bytes");
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
