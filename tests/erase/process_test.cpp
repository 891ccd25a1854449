#include "erase/process.h"
#include "tests/app/test_support.h"
#include "tests/erase/recorder.h"

#include <QEventLoop>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <array>
#include <csignal>

namespace {

using Job = Recorder<Process>;

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
        const auto row = [](const char* body, const QString& events) {
            QTest::newRow(body) << "running 1|" + events;
        };
        row("printf 'a: 1\\nb: 2\\n'", "out: a: 1 1|out: b: 2 1|done 4");
        row("printf 'line\\r\\n'", "out: line\r 1|done 4");
        row("printf '\\n\\na\\n\\nb'", "out: a 1|out: b 1|done 4");
        row("printf 'a\\nb\\0c\\nd\\n'", "out: a 1|out: b 1|done 4");
        row("printf '\\351' >&2", u"err: \u00e9 1|done 4"_qs);
        row("exit 2", "error: exit code: 2 3");
        row("echo 100; kill -9 $$", "out: 100 1|error: exit code: 9 3");
        row("printf 4; while [ ! -e \"$1\" ]; do sleep 0.01; done; echo 2", // in two reads
            "out: 4 1|out: 2 1|done 4");
    }

    void reportsOutputAndEnd()
    {
        const QString seen = dir_.filePath("seen");
        Job job(7);
        job.inHook = [&](const QString& event) {
            if (event == "out: 4 1")
                write_script(seen, {});
        };
        job.start(script(QTest::currentDataTag()), {seen});
        QTRY_VERIFY(job.status() != Process::Running);
        QTEST(job.events->join('|'), "events");
    }

    void reportsAFailedStart()
    {
        const QString plain = write_script(dir_.filePath("plain"), "exit 0");
        QVERIFY(QFile::setPermissions(plain, QFile::ReadOwner));
        Job job(7);
        for (const QString& program : {dir_.filePath("missing"), plain}) {
            job.start(program, {});
            QCOMPARE(job.events->size(), 1);
            const QString event = job.events->takeFirst();
            QVERIFY2(event.startsWith("error: execv") && event.endsWith(" 3"), qPrintable(event));
        }
        job.start(script("exit 0"), {});
        QTRY_COMPARE(job.events->join('|'), "running 1|done 4");
    }

    void logsARun()
    {
        const auto start = dbg_string().size();
        Process job(7);
        const QString program = script("echo \"$2\"; exit 5");
        job.start(program, {"one", "two words"});
        QTRY_COMPARE(job.status(), Process::Error);
        job.stop(); // reported without a child, too
        QCOMPARE(job.status(), Process::Stopped);
        QCOMPARE(log_since(start).join('\n').remove("Process: id: 7: "),
                 "start: " + program +
                     " one two words\nupdateStatusRunning()\nstdout: two words\n"
                     "finished: exitCode: 5, exitStatus: 0\n"
                     "updateStatusError(exit code: 5)\nclose()\nupdateStatusStopped()\n");
    }

    void killsAChildWithoutWaiting()
    {
        const auto start = dbg_string().size();
        for (const QString expected : {"stopped 2", "running 1|done 4", "destroyed"}) {
            auto job = std::make_unique<Job>(7);
            const auto events = job->events;
            job->start(script("echo $$; exec sleep 100"), {});
            QTRY_COMPARE(events->size(), 2);
            const qint64 pid = events->constLast().section(' ', 1, 1).toInt();
            events->clear();
            if (expected.startsWith("stopped"))
                job->stop();
            else if (expected.startsWith("running"))
                job->start("/bin/true", {});
            else
                job.reset();
            QVERIFY(exists(pid)); // still to be waited for
            QTRY_VERIFY(!exists(pid) && (!job || job->status() != Process::Running));
            QCOMPARE(events->join('|'), job ? expected : "");
        }
        QVERIFY(!dbg_string().mid(start).contains("Destroyed while process")); // that waits
    }

    void hookMayDestroyOrRestart_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::newRow("running 1") << QByteArray("exec sleep 100");
        QTest::newRow("out: x 1") << QByteArray("printf 'x\\ny\\n'; exec sleep 100");
        QTest::newRow("err: x 1") << QByteArray("echo x >&2; exec sleep 100");
        QTest::newRow("done 4") << QByteArray("exit 0");
        QTest::newRow("error: exit code: 1 3") << QByteArray("exit 1");
    }

    void hookMayDestroyOrRestart()
    {
        QFETCH(QByteArray, body);
        for (const bool destroy : {true, false}) {
            auto* job = new Job(7);
            const auto events = job->events;
            QPointer<QObject> child;
            bool hasActed = false;
            bool isKept = true;
            job->inHook = [&, job](const QString& event) {
                if (event != QTest::currentDataTag() || std::exchange(hasActed, true))
                    return;
                child = job->caller();
                // Put off to when the signal that called this hook has returned.
                auto* afterSignal = new QObject;
                connect(afterSignal, &QObject::destroyed, this,
                        [&, hadChild = !child.isNull()] { isKept = !hadChild || child; });
                afterSignal->deleteLater();
                if (destroy)
                    delete job;
                else
                    job->start("/bin/true", {});
            };
            job->start(script(body), {});
            QTRY_VERIFY(hasActed && !child && (destroy || job->status() == Process::Done));
            QVERIFY(isKept);
            QCOMPARE(events->count("running 1"), destroy ? 1 : 2);
            if (!destroy)
                delete job;
        }
    }

    void childOutlivesNestedEventLoops_data()
    {
        QTest::addColumn<QString>("events");
        QTest::newRow("exit") << "running 1|out: error: x 1|done 4";
        QTest::newRow("stop") << "running 1|out: error: x 1|stopped 2";
        QTest::newRow("destroy") << "running 1|out: error: x 1";
    }

    // Two jobs open a message box each, one above the other; then both children end.
    void childOutlivesNestedEventLoops()
    {
        const QByteArray action = QTest::currentDataTag();
        const QString program = script("echo error: x; while [ ! -e \"$1\" ]; do sleep 0.01; done");
        const QString go = dir_.filePath("go");
        QFile::remove(go);
        std::array jobs{std::make_unique<Job>(1), std::make_unique<Job>(2)};
        const std::array events{jobs[0]->events, jobs[1]->events};
        int opened = 0;
        int closed = 0;
        const auto open_box = [&](const Job& job) {
            const QPointer<QProcess> child = qobject_cast<QProcess*>(job.caller());
            const qint64 pid = child->processId();
            QEventLoop loop;
            QTimer closing;
            // Queued behind whatever the end of the child has put off.
            connect(&closing, &QTimer::timeout, &loop, [&] {
                if (!exists(pid))
                    QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
            });
            closing.start(1);
            if (++opened == 2) {
                write_script(go, {});
                for (auto& each : jobs)
                    action == "stop" ? each->stop() : action == "destroy" ? each.reset() : void();
            }
            loop.exec();
            closed += child ? 1 : 0; // its signal is still on the stack
        };
        for (const auto& job : jobs) {
            job->inHook = [&open_box, &job = *job](const QString& event) {
                if (event.startsWith("out: "))
                    open_box(job);
            };
            job->start(program, {go});
        }
        QTRY_COMPARE(closed, 2);
        for (const auto& each : events)
            QTEST(each->join('|'), "events");
    }

private:
    QString script(const QByteArray& body) { return write_script(dir_.filePath("child"), body); }

    const QTemporaryDir dir_;
};

QTEST_MAIN(ProcessTest)
#include "process_test.moc"
