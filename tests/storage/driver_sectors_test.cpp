#include "app/debug_log.h"
#include "storage/driver.h"
#include "tests/tools/file_drive.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTest>

class DriverSectorsTest : public QObject {
    Q_OBJECT

private slots:
    void readsAndWritesFarOut()
    {
        FileDrive file(1ULL << 33);
        Driver driver(file.drive.device().c_str(), 512);
        QVERIFY(driver.init(Driver::ReadWrite));
        QCOMPARE(driver.size(), 1ULL << 42);
        // The first sectors, those around 2 and 4 GiB, the last ones behind a hole.
        for (const auto lba : {0ULL, (1ULL << 22) - 1, (1ULL << 23) - 1, (1ULL << 33) - 2}) {
            const QByteArray sectors = QByteArray::number(lba).leftJustified(1024, 'z');
            QCOMPARE(driver.writeSectors(lba, 2, sectors.constData()), 2ULL);
            QVERIFY(file.at(lba).read(1024) == sectors);
            QByteArray read(sectors.size(), '?');
            QCOMPARE(driver.readSectors(lba, 2, read.data()), 2ULL);
            QVERIFY(read == sectors);
        }
    }

    void writesToABlockDevice()
    {
        FileDrive file(8);
        QProcess losetup;
        losetup.start("losetup", {"--find", "--show", file.drive.device().c_str()});
        if (!losetup.waitForFinished() || losetup.exitCode() != 0) {
            QSKIP("no loop device: it takes root");
        }
        const QByteArray loop = losetup.readAllStandardOutput().trimmed();
        const QByteArray sector(512, 'z');
        Driver driver(loop, 512);
        const bool isWritten = driver.init(Driver::Write) && driver.size() == 4096 &&
                               driver.writeSectors(7, 1, sector.constData()) == 1;
        driver.close();
        QCOMPARE(QProcess::execute("losetup", {"--detach", loop}), 0);
        QVERIFY(isWritten);
        QTRY_COMPARE(file.at(7).read(512), sector);
    }

    void logsFailuresAndNoShortReads()
    {
        dbg_init(DBG_TYPE_STRING, 1);
        FileDrive file(1, 1000);
        std::array<char, 1024> bytes = {};
        Driver driver(file.drive.device().c_str(), 512);
        QVERIFY(driver.init(Driver::Read));
        QCOMPARE(driver.readSectors(0, 2, bytes.data()), 1ULL);
        QCOMPARE(driver.readSectors(1ULL << 33, 1, bytes.data()), 0ULL);
        QCOMPARE(driver.writeSectors(3, 1, bytes.data()), 0ULL);
        QVERIFY(driver.init(Driver::Write));
        QCOMPARE(driver.writeStd(~0ULL, bytes.data(), 7), 0ULL);
        QCOMPARE(QString(dbg_string()).remove(QRegularExpression("Driver\\(\\d+\\): ")),
                 "1536 512 -1 Bad file descriptor\n18446744073709551615 Invalid argument\n");
    }
};

QTEST_GUILESS_MAIN(DriverSectorsTest)
#include "driver_sectors_test.moc"
