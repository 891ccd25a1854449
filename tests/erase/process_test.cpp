#include "erase/process.h"
#include "erase/wiper.h"
#include "tests/support/script_and_log.h"

#include <QPointer>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

namespace {

/// A job that keeps the hooks called, their text and the status seen in each, as in
/// "error: exit code: 2 3", and then does in the hook what the test wants to be done there.
class Job : public Process {
public:
    using Process::Process;

    const std::shared_ptr<QStringList> events = std::make_shared<QStringList>();
    std::function<void(const QString& seen, QObject* child)> inHook;

    void updateStatusRunning() override { record("running"); }
    void updateStatusStopped() override { record("stopped"); }
    void updateStatusError(const QString& message) override { record("error: " + message); }
    void updateStatusDone() override { record("done"); }
    void updateStandardError(const QString& line) override { record("err: " + line); }
    void updateStandardOutput(const QString& line) override { record("out: " + line); }

private:
    void record(const QString& event)
    {
        *events << event + ' ' + QString::number(status());
        if (const auto action = inHook) { // a copy: it may end the recorder
            action(events->constLast(), sender());
        }
    }
};

using Action = void (*)(std::unique_ptr<Job>& job);
const Action kStop = [](auto& job) { job->stop(); };
const Action kRestart = [](auto& job) { job->start("/bin/true", {}); };
const Action kDestroy = [](auto& job) { job.reset(); };

// Also true for a dead child that nobody has waited for.
bool exists(qint64 pid)
{
    return kill(static_cast<pid_t>(pid), 0) == 0;
}

} // namespace

class ProcessTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { dbg_init("string", 1); }

    void reportsOutputAndEnd_data()
    {
        QTest::addColumn<QString>("events");
        QTest::newRow("printf 'a\\n\\nb\\0c\\nd\\n'") << "running 1|out: a 1|out: b 1|done 4";
        QTest::newRow("printf '\\351' >&2") << u"running 1|err: \u00e9 1|done 4"_qs;
        QTest::newRow("printf progr; sleep 1; printf 'ess: 30\\r\\n'")
            << "running 1|out: progr 1|out: ess: 30\r 1|done 4";
        QTest::newRow("exit 2") << "running 1|error: exit code: 2 3";
        QTest::newRow("kill -9 $$") << "running 1|error: exit code: 9 3";
    }

    void reportsOutputAndEnd()
    {
        Job job(7);
        job.stop(); // without a child
        job.start("/nonexistent", {});
        QCOMPARE(job.events->join('|'), "stopped 2|error: execvp: No such file or directory 3");
        job.events->clear();
        job.start(script(QTest::currentDataTag()), {});
        QTRY_VERIFY(job.status() != Process::Running);
        QTEST(job.events->join('|'), "events");
    }

    void logsProgressThatNobodyTakes()
    {
        Wiper wiper(3, Drive(), "A");
        const qsizetype start = dbg_string().size();
        wiper.updateStandardOutput("progress: 250");
        QCOMPARE(log_since(start), "Wiper: id: 3: updateProcess: 250\n"); // the word is as released
    }

    void killsAChildWithoutWaiting()
    {
        for (const auto& [action, expected] :
             {std::pair{kStop, "stopped 2"}, {kRestart, "running 1|done 4"}, {kDestroy, ""}}) {
            auto job = std::make_unique<Job>(7);
            const auto events = job->events;
            job->start(script("echo $$; exec sleep 100"), {});
            QTRY_COMPARE(events->size(), 2);
            const qint64 pid = events->constLast().section(' ', 1, 1).toInt();
            events->clear();
            action(job);
            QVERIFY(exists(pid)); // still to be waited for
            QTRY_VERIFY(!exists(pid) && (!job || job->status() != Process::Running));
            QCOMPARE(events->join('|'), expected);
        }
    }

    void hookMayDestroyOrRestart_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("out: x 1") << QByteArray("printf 'x\\ny\\n'; exec sleep 100");
        QTest::newRow("done 4") << QByteArray("exit 0");
    }

    void hookMayDestroyOrRestart()
    {
        QFETCH(QByteArray, body);
        for (const Action action : {kDestroy, kRestart}) {
            auto job = std::make_unique<Job>(7);
            QPointer<QObject> child;
            bool isKept = false;
            job->inHook = [&](const QString& event, QObject* caller) {
                if (event == QTest::currentDataTag()) {
                    child = caller;
                    job->inHook = nullptr;
                    // Put off to when the signal that called this hook has returned.
                    auto* afterSignal = new QObject;
                    connect(afterSignal, &QObject::destroyed, this, [&] { isKept = child; });
                    afterSignal->deleteLater();
                    action(job);
                }
            };
            job->start(script(body), {});
            QTRY_VERIFY(isKept && !child && (!job || job->status() == Process::Done));
        }
    }

private:
    QString script(const QByteArray& body) { return write_script(dir_.filePath("child"), body); }

    const QTemporaryDir dir_;
};

QTEST_MAIN(ProcessTest)
#include "process_test.moc"
