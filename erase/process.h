#pragma once

#include <QObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <memory>

/// Runs one external program as a child: its output becomes lines, its end a status, and
/// both reach the derived class through virtual hooks, on the GUI thread.
///
/// The status is set before its hook is called. A hook may open a message box (whose event
/// loop may deliver more output, the child's end, or stop()), start or stop this process,
/// or destroy it.
class Process : public QObject {
    Q_OBJECT

public:
    enum Status {
        NotStarted = 0,
        Running = 1, ///< The child started and has not finished.
        Stopped = 2, ///< Stopped on request.
        Error = 3,   ///< Failed to start, crashed, or a non-zero exit code.
        Done = 4,    ///< Finished normally with exit code 0.
    };

    /// The identifier is the owner's; it begins every log line.
    explicit Process(int id);
    /// Kills a running child and does not wait for it.
    ~Process() override;

    [[nodiscard]] int id() const;
    [[nodiscard]] Status status() const;

    /// Calls no hook.
    void setStatus(Status status);

    /// For the children to come, in place of this program's own environment.
    void setEnvironment(const QProcessEnvironment& environment);

    /// Starts a program without a shell, discarding any previous child; blocks until it has
    /// started, for at most 30 seconds.
    void start(const QString& program, const QStringList& arguments);

    /// Ends the child, if any, and reports Stopped.
    void stop();

    /// Lets go of the child without reporting a status; a running one is killed.
    void processClose();

    virtual void updateStatusRunning();
    virtual void updateStatusStopped();
    virtual void updateStatusError(const QString& message);
    virtual void updateStatusDone();

    /// One non-empty line of output. A line that arrives in two reads is two lines here.
    virtual void updateStandardOutput(const QString& line);
    virtual void updateStandardError(const QString& line);

private slots:
    void processStandardOutput();
    void processStandardError();
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);

private:
    using LineHook = void (Process::*)(const QString& line);

    void connectChild();
    void reportEnd(int exitCode, QProcess::ExitStatus exitStatus);
    void deliverLines(const QByteArray& bytes, const char* stream, LineHook hook);

    int id_;
    Status status_ = NotStarted;
    QProcessEnvironment environment_{QProcessEnvironment::InheritFromParent};
    std::shared_ptr<QProcess> child_;
};
