#include "tests/support/file_drive.h"
#include "tools/sector_arithmetic.h"
#include "tools/viewer.h"

#include <QDoubleSpinBox>
#include <QSlider>
#include <QTest>
#include <QTextEdit>

class ViewerTest : public QObject {
    Q_OBJECT

private slots:
    void countsSectors()
    {
        for (const auto last : {1ULL, 499ULL, 1000ULL, (1ULL << 32) + 1, (1ULL << 40) - 1}) {
            QCOMPARE(slider_lba(slider_maximum(last), slider_maximum(last), last), last);
            QCOMPARE(slider_position(last, last, slider_maximum(last)), slider_maximum(last));
        }
        QCOMPARE(slider_lba(499, 999, (1ULL << 40) - 1), 549'205'507'767ULL);
        QCOMPARE(whole_number(9'223'372'036'854'775'808.0), 1ULL << 63);
        QCOMPARE(wipe_progress(500, 1000), 50);
        QCOMPARE(wipe_progress(1500, 1000), 150); // by the absolute sector
    }

    void followsBothControls()
    {
        FileDrive file(1'953'525'168);
        file.at(977'740'323).write("sixteen bytes: m");
        file.at(1'953'525'167).write("sixteen bytes: e");
        Viewer viewer(file.drive, nullptr);
        auto* slider = viewer.findChild<QSlider*>();
        slider->setValue(500); // it falls back by one, and the sector stays
        const QString middle = "977740323 499 *** LBA: 977740323 ***\nm";
        QCOMPARE(shown(viewer), middle);
        slider->setValue(999);
        QCOMPARE(shown(viewer), "1953525167 999 *** LBA: 1953525167 ***\ne");
        viewer.findChild<QDoubleSpinBox*>()->setValue(977'740'323);
        QCOMPARE(shown(viewer), middle);
        file.at(977'740'323).write("sixteen bytes: x");
        viewer.showSector(977'740'323); // it is shown already
        QCOMPARE(shown(viewer), middle);
        QVERIFY(file.file.resize(0));
        QCOMPARE(shown(Viewer(file.drive, nullptr)), "0 0 *** LBA: 0 ***\nError: read failed");
        QVERIFY(file.file.remove());
        QCOMPARE(shown(Viewer(file.drive, nullptr)), "0 0 Error: driver initialization failed");
    }

private:
    // Where both controls stand, and the text with only the last character of the first dump line.
    static QString shown(const Viewer& viewer)
    {
        QString text = viewer.findChild<QTextEdit*>()->toPlainText().section(u'\n', 0, 1);
        text.remove(QRegularExpression("0000.*(?=.)"));
        const int position = viewer.findChild<QSlider*>()->value();
        return viewer.findChild<QDoubleSpinBox*>()->text() + QString(" %1 ").arg(position) + text;
    }
};

QTEST_MAIN(ViewerTest)
#include "viewer_test.moc"
