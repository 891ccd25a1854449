#include "app/display/display_helpers.h"

#include <QTest>
#include <QTimer>
#include <QWidget>

class DisplayHelpersTest : public QObject {
    Q_OBJECT

private slots:
    void formatsSizesAndBytes()
    {
        QCOMPARE(short_size_string(999), "999");
        QCOMPARE(short_size_string(999'999), "999KB");
        QCOMPARE(number_with_commas_string(1'234'567), "1,234,567");
        QCOMPARE(number_with_commas_string(-123), "-,123"); // the minus counts as a digit
        QCOMPARE(hms_time_string(359'999), "99:59:59");
        QCOMPARE(hms_time_string(-3725), "-1:-2:-5");
        QCOMPARE(hms_time_string((3600LL << 32) + 59), "00:00:59"); // hours have 32 bits
        QCOMPARE(QByteArray::fromStdString(hex_dump(" ~%\x7f\n\0\xe9", 7, 4)),
                 "0000 | 20 7e 25 7f  |  ~%.\n0004 | 0a 00 e9     | ...\n");
    }

    void showsWhatADriveReportsAsItIs()
    {
        Drive drive;
        drive.setModel("<b>%2%3\xe9");
        drive.setSerial("%1 & %3");
        drive.setSectors(5'000'000'000'000);
        drive.setSectorSize(4096);
        QCOMPARE(drive_label(drive),
                 u"<b><i>&lt;b&gt;%2%3\u00e9 / %1 &amp; %3 (5000000000000 sectors)</i></b>");
        QCOMPARE(drive_string_short(drive), u"20480TB / <b>%2%3\u00e9");
    }

    void saysNoToABareReturn()
    {
        for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Enter, Qt::Key_Space, Qt::Key_Escape}) {
            QTimer::singleShot(100, [&] {
                QTest::keyClick(QApplication::activeModalWidget()->focusWidget(), key);
            });
            QVERIFY(!confirm_media_overwriting(nullptr, "Title"));
        }
    }

    void saysNoWhenTheBoxGoesWithItsParent()
    {
        auto parent = std::make_unique<QWidget>();
        QTimer::singleShot(0, [&] { parent.reset(); });
        QVERIFY(!confirm_media_overwriting(parent.get(), "Title"));
    }
};

QTEST_MAIN(DisplayHelpersTest)
#include "display_helpers_test.moc"
