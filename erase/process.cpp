#include "erase/process.h"

#include "app/base/abandon.h"
#include "app/base/debug_log.h"

#include <QPointer>

namespace {

const char* const DBG_MODULE = "Process";

constexpr int kStartWaitMs = 30000;

// Begins a job's log line.
DbgOstream& log_job(int id, int line)
{
    return dbg_ostream(DBG_MODULE, line) << ": id: " << id << ": ";
}

} // namespace

Process::Process(int id) : id_(id)
{
}

Process::~Process()
{
    processClose();
}

int Process::id() const
{
    return id_;
}

Process::Status Process::status() const
{
    return status_;
}

void Process::setStatus(Status status)
{
    status_ = status;
}

void Process::setEnvironment(const QProcessEnvironment& environment)
{
    environment_ = environment;
}

void Process::start(const QString& program, const QStringList& arguments)
{
    log_job(id_, __LINE__) << "start: " << program << " " << arguments.join(QLatin1Char(' '))
                           << Qt::endl;
    processClose();
    // A child object must outlive the signals it is emitting. Every slot holds a reference, so
    // the last one goes at the earliest when the outermost slot returns, which may be long
    // after an inner event loop (of a message box) has delivered the child's end. The signal
    // itself is still on the stack then: only the event loop below it may destroy the object.
    child_ = std::shared_ptr<QProcess>(new QProcess, kill_and_abandon);
    child_->setProcessEnvironment(environment_);
    connectChild();
    child_->start(program, arguments, QIODevice::ReadWrite);
    if (!child_->waitForStarted(kStartWaitMs)) {
        const QString message = child_->errorString();
        log_job(id_, __LINE__) << message << Qt::endl;
        status_ = Error;
        updateStatusError(message);
        return;
    }
    status_ = Running;
    updateStatusRunning();
}

// Also without a child: see "How a child ends" in docs/odd-on-purpose.md.
void Process::stop()
{
    processClose();
    status_ = Stopped;
    updateStatusStopped();
}

void Process::processClose()
{
    if (!child_) {
        return;
    }
    log_job(id_, __LINE__) << "close()" << Qt::endl;
    if (child_->state() != QProcess::NotRunning) {
        log_job(id_, __LINE__) << "kill()" << Qt::endl;
        child_->disconnect();
        child_->kill();
    }
    child_.reset();
}

void Process::connectChild()
{
    connect(child_.get(), &QProcess::readyReadStandardOutput, this,
            &Process::processStandardOutput);
    connect(child_.get(), &QProcess::readyReadStandardError, this, &Process::processStandardError);
    connect(child_.get(), &QProcess::finished, this, &Process::processFinished);
}

void Process::processStandardOutput()
{
    deliverLines(child_->readAllStandardOutput(), "stdout", &Process::updateStandardOutput);
}

void Process::processStandardError()
{
    deliverLines(child_->readAllStandardError(), "stderr", &Process::updateStandardError);
}

// See "A line in two reads" in docs/odd-on-purpose.md.
void Process::deliverLines(const QByteArray& bytes, const char* stream, LineHook hook)
{
    const QPointer<Process> self(this);
    const std::shared_ptr<QProcess> keepAlive = child_;
    const QString text = QString::fromLatin1(bytes.constData()); // up to the first zero byte
    const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        log_job(id_, __LINE__) << stream << ": " << line << Qt::endl;
        (this->*hook)(line);
        if (!self) {
            return;
        }
    }
}

void Process::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    const QPointer<Process> self(this);
    const std::shared_ptr<QProcess> finished = child_;
    log_job(id_, __LINE__) << "finished: exitCode: " << exitCode
                           << ", exitStatus: " << int(exitStatus) << Qt::endl;
    if (status_ == Running) {
        reportEnd(exitCode, exitStatus);
    }
    if (self && child_ == finished) { // a hook may have started the next child
        processClose();
    }
}

void Process::reportEnd(int exitCode, QProcess::ExitStatus exitStatus)
{
    if (exitStatus == QProcess::NormalExit && exitCode == 0) {
        status_ = Done;
        updateStatusDone();
        return;
    }
    status_ = Error;
    updateStatusError(tr("exit code: %1").arg(exitCode));
}

void Process::updateStatusRunning()
{
    log_job(id_, __LINE__) << "updateStatusRunning()" << Qt::endl;
}

void Process::updateStatusStopped()
{
    log_job(id_, __LINE__) << "updateStatusStopped()" << Qt::endl;
}

void Process::updateStatusError(const QString& message)
{
    log_job(id_, __LINE__) << "updateStatusError(" << message << ")" << Qt::endl;
}

void Process::updateStatusDone()
{
    log_job(id_, __LINE__) << "updateStatusDone()" << Qt::endl;
}

void Process::updateStandardOutput(const QString&)
{
}

void Process::updateStandardError(const QString&)
{
}
