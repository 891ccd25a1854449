#pragma once

#include <QString>
#include <QTextStream>

#include <string>
#include <type_traits>

// The one log of the process. It goes to a buffer in memory (shown by the debug window),
// to the standard error stream or to a file; before dbg_init() to the standard error
// stream. Only the main thread logs: the streams are not locked. What the toolkit says in
// other threads enters in the main thread's event loop.
//
// A message is one line, "Tag(line): text", written as
//     dbg_ostream(DBG_MODULE, __LINE__) << ": " << text << Qt::endl;
// where DBG_MODULE is the source file's own constant tag.

/// Debug types that are destinations by themselves; any other type is a file's path.
extern const char* const DBG_TYPE_STRING;
extern const char* const DBG_TYPE_STDERR;

/// The log stream: the toolkit's text stream, except that narrow text is taken as Latin-1
/// bytes (the toolkit would take it as UTF-8).
class DbgOstream : public QTextStream {
public:
    using QTextStream::QTextStream;
};

/// Writes the bytes up to the terminating zero as Latin-1 text.
DbgOstream& operator<<(DbgOstream& stream, const char* text);

/// Writes the bytes up to the first zero byte as Latin-1 text.
DbgOstream& operator<<(DbgOstream& stream, const std::string& text);

/// Everything else that the toolkit's text stream accepts. It hands on the log stream, so
/// that narrow text further along the same line is still taken as Latin-1.
template <typename T>
requires(!std::is_convertible_v<const T&, const char*>) DbgOstream& operator<<(DbgOstream& stream,
                                                                               const T& value)
{
    static_cast<QTextStream&>(stream) << value;
    return stream;
}

/// Manipulators such as Qt::endl, which ends the line and flushes the stream.
DbgOstream& operator<<(DbgOstream& stream, QTextStreamFunction manipulator);

/// Chooses the destination by debug type and routes the toolkit's own messages into the
/// log. A file is truncated. If it cannot be opened the log of this run is lost, silently,
/// while dbg_type() reports "stderr". The number is not used.
/// See "A log file that cannot be opened" in docs/odd-on-purpose.md.
void dbg_init(const char* type, int);

/// Makes the standard error stream the destination; dbg_type() still says what dbg_init() chose.
/// The number is not used.
void dbg_init_stderr(int);

/// The debug type chosen by dbg_init(); "stderr" before that.
const QString& dbg_type();

/// All that was logged to memory so far; empty unless the debug type is "string".
const QString& dbg_string();

/// The current log stream, with nothing written.
DbgOstream& dbg_ostream();

/// The current log stream, after writing "module(line)".
DbgOstream& dbg_ostream(const char* module, int line);
