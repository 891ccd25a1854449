#include "app/program_config.h"
#include "erase/formatter.h"
#include "erase/wiper.h"
#include "tests/app/test_support.h"
#include "tests/erase/recorder.h"

#include <QTemporaryDir>
#include <QTest>

namespace {

class RecordingWiper : public Recorder<Wiper> {
public:
    using Recorder::Recorder;

    // NOLINTNEXTLINE(bugprone-parent-virtual-call): what is tested is the wiper's own reading
    void updateStandardOutput(const QString& line) override { Wiper::updateStandardOutput(line); }
    void updateProgress(int percent) override { record("progress " + QString::number(percent)); }
};

} // namespace

class JobsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        dbg_init("string", 1);
        drive_.setDevice("/dev/no such");
        theProgramConfig().setLib(lib_.path().toStdString());
    }

    void giveTheHelpersTheirArguments()
    {
        for (const char* helper : {"driver", "format"})
            write_script(lib_.filePath(helper), "printf '%s|' \"$@\" >&2");
        for (const bool emulate : {false, true}) {
            Recorder<Wiper> wiper(3, drive_, "A  'B' \"");
            Recorder<Formatter> formatter(4, drive_);
            wiper.start(emulate);
            formatter.start(emulate, "/tmp/a picture.png");
            QTRY_VERIFY(wiper.status() == Process::Done && formatter.status() == Process::Done);
            const QString mode = emulate ? "read" : "write";
            QCOMPARE(wiper.events->at(1), "err: device=/dev/no such|mode=" + mode +
                                              "|pattern=A  'B' \"|sectorsPerTime=256| 1");
            const QString suffix = emulate ? "-emulate" : "";
            QCOMPARE(formatter.events->at(1),
                     "err: /dev/no such" + suffix + "|/tmp/a picture.png| 1");
        }
    }

    void wiperReadsTheHelpersLines()
    {
        for (const auto& [line, event] : std::initializer_list<std::pair<QString, QString>>{
                 {"progress: 42", "progress 42 0"},
                 {"progress: 250", "progress 250 0"},
                 {"progress: much", "progress 0 0"},
                 {"progress:42", ""},
                 {"Progress: 42", ""},
                 {" progress: 42", ""},
                 {"error: write failed at sector 5", "error: write failed at sector 5 3"},
                 {"error:x", ""},
                 {"Error: x", ""}}) {
            RecordingWiper wiper(3, drive_, "A");
            wiper.updateStandardOutput(line);
            QCOMPARE(wiper.events->join('|'), event);
        }
    }

    void wiperStaysFailedAfterAnErrorLine()
    {
        write_script(lib_.filePath("driver"), "echo error: bad; echo progress: 100; exit 0");
        RecordingWiper wiper(3, drive_, "A");
        const auto start = dbg_string().size();
        wiper.start(false);
        QTRY_VERIFY(log_since(start).contains("Process: id: 3: close()"));
        QCOMPARE(wiper.events->join('|'), "running 1|error: bad 3|progress 100 3");
    }

private:
    const QTemporaryDir lib_;
    Drive drive_;
};

QTEST_MAIN(JobsTest)
#include "jobs_test.moc"
