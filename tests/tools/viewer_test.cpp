#include "tests/tools/file_drive.h"
#include "tools/sector_arithmetic.h"
#include "tools/viewer.h"

#include <QDoubleSpinBox>
#include <QSlider>
#include <QTest>
#include <QTextEdit>

namespace {

// Where both controls stand in their ranges, and the text without most of the dump.
QString shown(const Viewer& viewer)
{
    const auto* spinbox = viewer.findChild<QDoubleSpinBox*>();
    const auto* slider = viewer.findChild<QSlider*>();
    const QString text = viewer.findChild<QTextEdit*>()->toPlainText();
    return QStringLiteral("%1/%2 %3/%4 %5")
        .arg(spinbox->text(), QString::number(spinbox->maximum(), 'f', 0),
             QString::number(slider->value()), QString::number(slider->maximum()),
             text.section(u'\n', 0, 1).remove(QRegularExpression("0000 .* \\| .{13}")));
}

} // namespace

class ViewerTest : public QObject {
    Q_OBJECT

private slots:
    void countsSectors()
    {
        QCOMPARE(last_sector(0), 0ULL);
        QCOMPARE(slider_maximum(499), 499);
        QCOMPARE(slider_lba(0, 0, 0), 0ULL);
        for (const auto last : {1ULL, 499ULL, 1000ULL, (1ULL << 32) + 1, (1ULL << 40) - 1}) {
            QCOMPARE(slider_lba(slider_maximum(last), slider_maximum(last), last), last);
            QCOMPARE(slider_position(last, last, slider_maximum(last)), slider_maximum(last));
        }
        QCOMPARE(slider_lba(499, 999, (1ULL << 40) - 1), 549'205'507'767ULL);
        QCOMPARE(wipe_progress(999'999, 1'000'000), 99);
        QCOMPARE(wipe_progress(1500, 1000), 150);
        QCOMPARE(wipe_progress(1ULL << 40, 1), std::numeric_limits<int>::max());
        QCOMPARE(whole_number(9'007'199'254'740'991.0), (1ULL << 53) - 1);
        QCOMPARE(whole_number(9'223'372'036'854'775'808.0), 1ULL << 63);
    }

    void followsBothControls()
    {
        FileDrive file(1'953'525'168);
        file.at(977'740'323).write("sixteen bytes: m");
        file.at(1'953'525'167).write("sixteen bytes: e");
        file.drive.setModel("<b>%1");
        file.drive.setSerial("\xfc%2");
        Viewer viewer(file.drive, nullptr);
        QCOMPARE(viewer.windowTitle(), "<b>%1 / \u00fc%2");
        QCOMPARE(shown(viewer), "0/1953525167 0/999 *** LBA: 0 ***\n...");
        auto* slider = viewer.findChild<QSlider*>();
        slider->setValue(500); // it falls back by one, and the sector stays
        const QString middle = "977740323/1953525167 499/999 *** LBA: 977740323 ***\n: m";
        QCOMPARE(shown(viewer), middle);
        slider->setValue(999);
        QCOMPARE(shown(viewer), "1953525167/1953525167 999/999 *** LBA: 1953525167 ***\n: e");
        viewer.findChild<QDoubleSpinBox*>()->setValue(977'740'323);
        QCOMPARE(shown(viewer), middle);
    }

    void showsFailures()
    {
        FileDrive file(4);
        Viewer viewer(file.drive, nullptr);
        QVERIFY(file.file.resize(0));
        viewer.showSector(3);
        QCOMPARE(shown(viewer), "3/3 3/3 *** LBA: 3 ***\nError: read failed");
        QCOMPARE(shown(Viewer(file.drive, nullptr)), "0/0 0/0 *** LBA: 0 ***\nError: read failed");
        QVERIFY(file.file.resize(2048));
        viewer.showSector(3); // the sector shown is not read again
        QCOMPARE(shown(viewer), "3/3 3/3 *** LBA: 3 ***\nError: read failed");
        viewer.show();
        viewer.close();
        QVERIFY(file.file.remove()); // the viewer still has the drive open
        viewer.showSector(2);
        QCOMPARE(shown(viewer), "2/3 2/3 *** LBA: 2 ***\n...");
        QCOMPARE(shown(Viewer(file.drive, nullptr)), "0/0 0/0 Error: driver initialization failed");
    }
};

QTEST_MAIN(ViewerTest)
#include "viewer_test.moc"
