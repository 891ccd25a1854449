#include "app/display_helpers.h"

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>

#include <climits>
#include <sstream>

class DisplayHelpersTest : public QObject {
    Q_OBJECT

private slots:
    void formatsNumbers()
    {
        QCOMPARE(short_size_string(999), "999");
        QCOMPARE(short_size_string(999'999), "999KB");
        QCOMPARE(short_size_string(999'999'999'999'999), "999TB");
        QCOMPARE(short_size_string(ULLONG_MAX), "18446744TB");
        QCOMPARE(number_with_commas_string(-123), "-,123");
        QCOMPARE(number_with_commas_string(LLONG_MIN), "-9,223,372,036,854,775,808");
        QCOMPARE(hms_time_string(3725), "01:02:05");
        QCOMPARE(hms_time_string(360'000), "100:00:00");
        QCOMPARE(hms_time_string(-3725), "-1:-2:-5");
        QCOMPARE(hms_time_string(3600LL << 32), "00:00:00"); // the hours are a 32-bit number
    }

    void dumpsBytes()
    {
        const auto dump = [](const QByteArray& bytes) {
            const auto size = static_cast<unsigned>(bytes.size());
            return QByteArray::fromStdString(hex_dump(bytes.constData(), size, 16));
        };
        QCOMPARE(dump({}), "");
        QCOMPARE(dump("0123456789ABCDEF"), "0000 | 30 31 32 33 34 35 36 37 38 39 41 42 43 44 45 46 "
                                           " | 0123456789ABCDEF\n");
        QVERIFY(
            dump(QByteArray(17, 'Q')).endsWith("\n0010 | 51 " + QByteArray(45, ' ') + " | Q\n"));
        QVERIFY(dump({" ~\x7f\n\x80\xe9\xff\0", 8}).endsWith(" |  ~......\n"));
        QVERIFY(dump(QByteArray(0x10001, 'S')).contains("\n10000 | 53 "));
        std::ostringstream os;
        hex_dump(os << std::uppercase, "JK", 2, 1);
        os << 11;
        QCOMPARE(os.str(), "0000 | 4A  | J\n0001 | 4B  | K\n11"); // the flags are restored
    }

    void showsWhatADriveReportsAsItIs()
    {
        Drive drive;
        drive.setModel("<b>%2%3\xe9");
        drive.setSerial("%1 & %3");
        drive.setSectors(5'000'000'000);
        drive.setSectorSize(4096);
        QCOMPARE(drive_label(drive),
                 u"<b><i>&lt;b&gt;%2%3\u00e9 / %1 &amp; %3 (5000000000 sectors)</i></b>");
        QCOMPARE(drive_string_short(drive), u"20TB / <b>%2%3\u00e9");
    }

    void overwritesOnlyAfterYes()
    {
        for (const auto button : {QMessageBox::Yes, QMessageBox::No, QMessageBox::NoButton}) {
            QString text;
            QTimer::singleShot(0, this, [&] {
                auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
                text = box->windowTitle() + ": " + box->text();
                if (QAbstractButton* pressed = box->button(button))
                    pressed->click();
                else
                    QTest::keyClick(box, Qt::Key_Escape);
            });
            QCOMPARE(confirm_media_overwriting(nullptr, "Title"), button == QMessageBox::Yes);
            QCOMPARE(text, "Title: Data on this media will be overwritten!\n\n"
                           "Are you sure you want to continue?");
        }
    }

    void theParentOfABoxMayGo()
    {
        const QPointer<QWidget> parent = new QWidget;
        QTimer::singleShot(0, this, [&] { delete parent; });
        QVERIFY(!confirm_media_overwriting(parent, "Title"));
    }

    void clearsALayout()
    {
        QWidget parent;
        auto* layout = new QVBoxLayout(&parent);
        auto* inner = new QVBoxLayout;
        for (QLayout* each : {layout, inner, inner})
            each->addWidget(new QLabel);
        layout->addStretch();
        layout->addLayout(inner);
        std::vector<std::unique_ptr<QLayoutItem>> left; // left undeleted
        for (const QLayout* each : {inner, layout}) {
            for (int i = 0; i < each->count(); ++i)
                left.emplace_back(each->itemAt(i));
        }
        clear_layout(layout);
        QCOMPARE(layout->count() + inner->count(), 0);
        QVERIFY(!parent.findChild<QLabel*>());
    }
};

QTEST_MAIN(DisplayHelpersTest)
#include "display_helpers_test.moc"
