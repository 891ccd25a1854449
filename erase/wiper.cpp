#include "erase/wiper.h"

#include "app/base/debug_log.h"
#include "erase/helper_program.h"
#include "helpers/protocol/driver_protocol.h"

namespace {

const char* const DBG_MODULE = "Wiper";

const QLatin1String kProgressPrefix(driver_protocol::kProgress);
const QLatin1String kErrorPrefix(driver_protocol::kError);

// Sectors that the helper transfers in one step.
constexpr int kStepSectors = 256;

QString argument(const char* name, const QString& value)
{
    return QLatin1String(name) + QLatin1Char('=') + value;
}

} // namespace

Wiper::Wiper(int id, const Drive& drive, const std::string& pattern)
    : Process(id), drive_(drive), pattern_(pattern)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id << ": " << drive.model() << " / " << drive.serial() << Qt::endl;
}

const Drive& Wiper::drive() const
{
    return drive_;
}

void Wiper::start(bool emulate)
{
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id() << ": start: emulate: " << emulate << Qt::endl;
    using namespace driver_protocol;
    const QStringList arguments{
        argument(kDevice, QString::fromLatin1(drive_.device())),
        argument(kMode, QLatin1String(emulate ? kRead : kWrite)),
        argument(kPattern, QString::fromLatin1(pattern_)),
        argument(kSectorsPerTime, QString::number(kStepSectors)),
    };
    Process::start(helper_program("driver"), arguments);
}

void Wiper::updateStandardOutput(const QString& line)
{
    if (line.startsWith(kProgressPrefix)) {
        updateProgress(line.mid(kProgressPrefix.size()).toInt());
    } else if (line.startsWith(kErrorPrefix)) {
        // See "error: does not stop the helper" in docs/odd-on-purpose.md.
        setStatus(Error);
        updateStatusError(line.mid(kErrorPrefix.size()));
    }
}

void Wiper::updateProgress(int percent)
{
    // Not the function's name: see "updateProcess" in docs/odd-on-purpose.md.
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id() << ": updateProcess: " << percent << Qt::endl;
}
