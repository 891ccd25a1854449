#include "diskservice/source/device_text.h"

#include <QTest>

class DeviceTextTest : public QObject {
    Q_OBJECT

private slots:
    void text_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const QByteArray& bytes, const QString& text) {
            QTest::newRow(name) << bytes << text;
        };
        row("plain text and blanks stay", " A-1 %2\\x20<b>~", " A-1 %2\\x20<b>~");
        row("UTF-8 stays", "\u00e9\u0416\u4e2d\U0001F4BE", "\u00e9\u0416\u4e2d\U0001F4BE");
        row("other bytes are Latin-1", "\xe9\xff", "\u00e9\u00ff");
        row("line feeds forge no line", "A\r\nroot: DONE\n", "A??root: DONE?");
        row("controls and escapes", "\x01\t\x1b[2J\x7f", "???[2J?");
        row("C1 controls of Latin-1", "a\x85\xff\x9b", "a?\u00ff?");
        row("C1 controls of UTF-8", "a\u0085b\u009b", "a?b?");
        row("line and paragraph separators", "a\u2028b\u2029", "a?b?");
        row("a turned direction of writing", "a\u202eb\u2066c\u200f", "a?b?c?");
        row("invisible and unassigned ones", "\u200b\ufeff\ue000\uffff\U000e0001", "?????");
        row("an overlong text", QByteArray(5000, 'x'), QString(256, 'x'));
        row("an overlong text of large characters", QByteArray("\U0001F4BE").repeated(300),
            QString("\U0001F4BE").repeated(256));
    }
    void text()
    {
        QFETCH(QByteArray, bytes);
        QTEST(device_text(bytes.toStdString()), "text");
    }

    void fileNamesAreNotCut()
    {
        const std::string path(5000, 'x');
        QCOMPARE(printable_text(path + '\n'), QString(5000, 'x') + '?');
    }
};

QTEST_GUILESS_MAIN(DeviceTextTest)
#include "device_text_test.moc"
