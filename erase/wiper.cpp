#include "erase/wiper.h"

#include "app/base/debug_log.h"
#include "erase/helper_program.h"

namespace {

const char* const DBG_MODULE = "Wiper";

const QLatin1String kProgressPrefix("progress: ");
const QLatin1String kErrorPrefix("error: ");

// Sectors that the helper transfers in one step.
constexpr int kSectorsPerTime = 256;

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
    const QStringList arguments{
        QStringLiteral("device=") + QString::fromLatin1(drive_.device()),
        QStringLiteral("mode=") + QLatin1String(emulate ? "read" : "write"),
        QStringLiteral("pattern=") + QString::fromLatin1(pattern_),
        QStringLiteral("sectorsPerTime=") + QString::number(kSectorsPerTime),
    };
    Process::start(helper_program("driver"), arguments);
}

void Wiper::updateStandardOutput(const QString& line)
{
    if (line.startsWith(kProgressPrefix)) {
        updateProgress(line.mid(kProgressPrefix.size()).toInt());
    } else if (line.startsWith(kErrorPrefix)) {
        setStatus(Error);
        updateStatusError(line.mid(kErrorPrefix.size()));
    }
}

void Wiper::updateProgress(int percent)
{
    // The log says "updateProcess", on purpose.
    dbg_ostream(DBG_MODULE, __LINE__)
        << ": id: " << id() << ": updateProcess: " << percent << Qt::endl;
}
