#include "storage/file_system.h"
#include "tests/support/bus_test.h"
#include "tests/support/script_and_log.h"

class FileSystemTest : public BusTest {
    Q_OBJECT

private slots:
    void listsFileSystemsOnly()
    {
        service_.setDevices(
            {partition_.with("DeviceMountPaths", QStringList{"/m\u00fc", "/mnt"}),
             {"gone", {}, "no %1", {}},
             fake_drive("raid").with("IdUsage", "raid"),
             fake_drive("whole").with("IdUsage", "filesystem").with("IdType", "ext4")});
        const qsizetype start = dbg_string().size();
        const std::vector<FileSystem> found = get_filesystems();
        QCOMPARE(found.size(), 2U);
        QCOMPARE(found.front().mountPath(), "/m\xfc"); // of several the first
        QCOMPARE(found.back().devicePath(), "/org/freedesktop/UDisks/devices/whole");
        static const QString kDevices = "/org/freedesktop/UDisks/devices/";
        QCOMPARE(log_since(start).remove("FileSystems: ").remove(kDevices), R"(get_filesystems()
*** devicePath: sdb1 ***
updateMountPath: devicePath: sdb1
device: sdb1
  type: vfat
  label: DATA
  mountPath: /mü
*** devicePath: gone ***
GetAll failed: no %1
*** devicePath: raid ***
not a filesystem (skip)
*** devicePath: whole ***
updateMountPath: devicePath: whole
device: whole
  type: ext4
  label: 
  mountPath: 
2 filesystems found
)");
    }

    void mountsAndUnmounts()
    {
        partition_.mountPath = "/media/DATA";
        service_.setDevices({partition_});
        FileSystem fileSystem = get_filesystems().front();
        QVERIFY(fileSystem.mount());
        QCOMPARE(fileSystem.mountPath(), "/media/DATA");
        QVERIFY(fileSystem.umount());
        QCOMPARE(fileSystem.mountPath(), "");
    }

    void keepsItsMountPathWhenTheServiceRefuses()
    {
        FakeDevice busy = partition_.with("DeviceMountPaths", QStringList{"/mnt"});
        busy.mountPath.clear();
        busy.mountError = "busy %1";
        service_.setDevices({busy});
        FileSystem fileSystem = get_filesystems().front();
        const qsizetype start = dbg_string().size();
        QVERIFY(!fileSystem.mount() && !fileSystem.umount());
        QCOMPARE(fileSystem.mountPath(), "/mnt");
        busy.mountError.clear(); // and mounts it nowhere
        service_.setDevices({busy});
        QVERIFY(!fileSystem.mount());
        QCOMPARE(fileSystem.mountPath(), "/mnt");
        QCOMPARE(log_since(start), "FileSystems: busy %1\nFileSystems: busy %1\n"
                                   "FileSystems: empty mount path\n");
    }

private:
    FakeDiskService service_{bus_.address()};
    FakeDevice partition_ = fake_partition("sdb1").with("IdUsage", "filesystem");
};

QTEST_GUILESS_MAIN(FileSystemTest)
#include "file_system_test.moc"
