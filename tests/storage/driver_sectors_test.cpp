#include "storage/driver.h"
#include "tests/support/file_drive.h"
#include "tests/support/script_and_log.h"

#include <QProcess>
#include <QTest>

class DriverSectorsTest : public QObject {
    Q_OBJECT

private slots:
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

    void makesFilesButNoDrives()
    {
        const QTemporaryDir directory;
        const QString file = directory.filePath("new");
        Driver driver(file.toLatin1(), 512);
        QVERIFY(driver.init(Driver::Write));
        QCOMPARE(driver.size(), 0ULL);
        const QString gone = "/dev/gone" + QFileInfo(directory.path()).fileName();
        QVERIFY(QFile::link(gone, directory.filePath("link")));
        for (const QString& path : {gone, directory.filePath("link")}) {
            Driver drive(path.toLatin1(), 512);
            QVERIFY(!drive.init(Driver::Write) && !drive.init(Driver::ReadWrite));
            QVERIFY(!QFile::remove(gone));
        }
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
        QVERIFY(driver.close() && !driver.close()); // nothing is open
        QCOMPARE(log_since(0).remove("Driver: "),
                 "1536 512 -1 Bad file descriptor\n18446744073709551615 Invalid argument\n"
                 "Bad file descriptor\n");
    }
};

QTEST_GUILESS_MAIN(DriverSectorsTest)
#include "driver_sectors_test.moc"
