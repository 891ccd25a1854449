#pragma once

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/prctl.h>

#include <csignal>

// A message bus for one test, and programs that take it for the system's bus. They end with
// the test, also when it crashes.

/// Lets the kernel kill the program when the thread that starts it ends (prctl(2)), so start
/// it from the main thread.
inline void end_with_this_thread(QProcess& process)
{
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

class PrivateBus {
public:
    ~PrivateBus() { stop(); }

    [[nodiscard]] bool start(const QString& configuration = "--session")
    {
        end_with_this_thread(process_);
        process_.start("dbus-daemon",
                       {configuration, "--nofork", "--print-address", "--address=" + address()});
        return process_.waitForReadyRead(); // it prints the address once it listens
    }

    void stop()
    {
        process_.kill();
        process_.waitForFinished();
    }

    /// Where it listens while it runs, as DBUS_SYSTEM_BUS_ADDRESS takes it: always the same.
    [[nodiscard]] QString address() const { return "unix:path=" + directory_.filePath("bus"); }

    /// Starts it as the system bus of this process too. Before the first bus call: the bus
    /// library asks only once for the address, so this is for one bus of a process.
    [[nodiscard]] bool startAsSystemBus()
    {
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address().toLatin1());
        return start();
    }

private:
    QTemporaryDir directory_;
    QProcess process_;
};

class ServiceProcess {
public:
    ~ServiceProcess() { end(SIGKILL); }

    void start(const PrivateBus& bus, const QString& program, const QStringList& arguments)
    {
        end_with_this_thread(process_);
        process_.start("env", QStringList{"DBUS_SYSTEM_BUS_ADDRESS=" + bus.address(), program} +
                                  arguments);
    }

    /// Whether it comes to own the name on the bus of this connection.
    [[nodiscard]] static bool waitForName(const QDBusConnection& connection, const QString& name)
    {
        return QTest::qWaitFor([&] { return connection.interface()->isServiceRegistered(name); });
    }

    /// Whether the text comes to stand in what it has written to standard error.
    [[nodiscard]] bool says(const QByteArray& text)
    {
        return QTest::qWaitFor([&] {
            said_ += process_.readAllStandardError();
            return said_.contains(text);
        });
    }
    [[nodiscard]] const QByteArray& said() const { return said_; }

    /// Its exit code once it has ended by itself; -1 when it does not, or crashed.
    [[nodiscard]] int exitCode()
    {
        process_.waitForFinished();
        const bool hasEnded = process_.state() == QProcess::NotRunning;
        return hasEnded && process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
    }

    /// Sends it the signal if it runs, and gives what exitCode() gives then.
    int end(int signal)
    {
        if (process_.state() == QProcess::Running) {
            ::kill(static_cast<pid_t>(process_.processId()), signal);
        }
        return exitCode();
    }

private:
    QProcess process_;
    QByteArray said_;
};
