#include "app/base/debug_log.h"

#include "config/debug_line.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QProcess>
#include <QThread>

#include <cstdio>

const char* const DBG_TYPE_STRING = "string";
const char* const DBG_TYPE_STDERR = "stderr";

namespace {

QString debugType = QString::fromLatin1(DBG_TYPE_STDERR);
QString logBuffer;
QFile logFile;
DbgOstream stderrStream(stderr, QIODevice::WriteOnly);
DbgOstream bufferStream(&logBuffer, QIODevice::WriteOnly);
DbgOstream fileStream(&logFile);
DbgOstream* currentStream = &stderrStream;

const char* message_label(QtMsgType kind)
{
    switch (kind) {
    case QtDebugMsg:
        return "Debug";
    case QtWarningMsg:
        return "Warning";
    case QtCriticalMsg:
        return "Critical";
    case QtFatalMsg:
        return "Fatal";
    default: // See "Empty brackets in the log" in docs/odd-on-purpose.md.
        return "";
    }
}

void log_message(QtMsgType kind, const QString& text)
{
    dbg_ostream() << "[" << message_label(kind) << "] " << text << Qt::endl;
}

// A message of one of the toolkit's own threads.
class ThreadMessage : public QEvent {
public:
    ThreadMessage(QtMsgType kind, const QString& text) : QEvent(User), kind_(kind), text_(text) {}
    void log() const { log_message(kind_, text_); }

private:
    QtMsgType kind_;
    QString text_;
};

// Lives in the main thread.
class ThreadMessageLogger : public QObject {
public:
    bool event(QEvent* event) override
    {
        if (const auto* message = dynamic_cast<ThreadMessage*>(event)) {
            message->log();
            return true;
        }
        return QObject::event(event);
    }
};

// Never destroyed: a thread may warn until the end.
QObject& thread_message_logger()
{
    static auto* const logger = new ThreadMessageLogger;
    return *logger;
}

// Messages of other threads wait for the main thread's event loop, so that they do not end up in
// the middle of a line; only the last words of a dying program cannot.
void log_toolkit_message(QtMsgType kind, const QMessageLogContext&, const QString& text)
{
    QObject& logger = thread_message_logger();
    if (QThread::currentThread() == logger.thread() || kind == QtFatalMsg) {
        log_message(kind, text);
    } else {
        QCoreApplication::postEvent(&logger, new ThreadMessage(kind, text));
    }
}

// Objects of other files may still warn while the process ends and this log is gone.
struct HandlerRemoval {
    ~HandlerRemoval() { qInstallMessageHandler(nullptr); }
};
const HandlerRemoval handlerRemoval;

bool open_log_file(const QString& path)
{
    if (path.isEmpty()) {
        return false;
    }
    logFile.setFileName(path);
    return logFile.open(QIODevice::WriteOnly);
}

// A stream on a closed file would make the toolkit complain at every line, and the
// complaint would come back into the log; a log that is lost must be lost silently.
void discard_log()
{
    logFile.setFileName(QProcess::nullDevice());
    logFile.open(QIODevice::WriteOnly);
}

void choose_destination()
{
    if (debugType == QLatin1String(DBG_TYPE_STDERR)) {
        currentStream = &stderrStream;
        return;
    }
    if (debugType == QLatin1String(DBG_TYPE_STRING)) {
        currentStream = &bufferStream;
        return;
    }
    logFile.close();
    if (!open_log_file(debugType)) {
        debugType = QString::fromLatin1(DBG_TYPE_STDERR);
        discard_log();
    }
    // Also when the file did not open: that log is lost, it does not go elsewhere.
    currentStream = &fileStream;
}

} // namespace

DbgOstream& operator<<(DbgOstream& stream, const char* text)
{
    static_cast<QTextStream&>(stream) << QLatin1String(text);
    return stream;
}

DbgOstream& operator<<(DbgOstream& stream, const std::string& text)
{
    return stream << text.c_str();
}

DbgOstream& operator<<(DbgOstream& stream, QTextStreamFunction manipulator)
{
    manipulator(stream);
    return stream;
}

void dbg_init(const char* type, int)
{
    debugType = QString::fromLocal8Bit(type);
    choose_destination();
    thread_message_logger(); // made here, in the main thread
    qInstallMessageHandler(log_toolkit_message);
}

void dbg_init_stderr(int)
{
    currentStream = &stderrStream;
}

const QString& dbg_type()
{
    return debugType;
}

const QString& dbg_string()
{
    return logBuffer;
}

DbgOstream& dbg_ostream()
{
    return *currentStream;
}

DbgOstream& dbg_ostream(const char* module, int line)
{
    return dbg_ostream() << module << "(" << line << ")";
}

void dbg_line(const char* module, int line, const std::string& text)
{
    dbg_ostream(module, line) << text << Qt::endl;
}
