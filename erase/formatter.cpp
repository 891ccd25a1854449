#include "erase/formatter.h"

#include "app/base/debug_log.h"
#include "erase/helper_program.h"
#include "helpers/protocol/format_protocol.h"

namespace {

const char* const DBG_MODULE = "Formatter";

} // namespace

Formatter::Formatter(int id, const Drive& drive) : Process(id), drive_(drive)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id << ": " << drive.model() << " / " << drive.serial() << Qt::endl;
}

const Drive& Formatter::drive() const
{
    return drive_;
}

void Formatter::start(bool emulate, const QString& imagePath)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id() << ": start: emulate: " << emulate << Qt::endl;
    QString device = QString::fromLatin1(drive_.device());
    // Not an argument of its own: a helper that overlooked it would write.
    // See "The -emulate suffix" in docs/odd-on-purpose.md.
    if (emulate) {
        device += QLatin1String(format_protocol::kEmulateSuffix);
    }
    Process::start(helper_program("format"), {device, imagePath});
}
