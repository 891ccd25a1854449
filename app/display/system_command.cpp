#include "app/display/system_command.h"

#include "app/base/abandon.h"
#include "app/base/debug_log.h"

#include <QByteArray>
#include <QProcess>

namespace {

const char* const DBG_MODULE = "System";

constexpr int kFinishWaitMs = 30000;

void log_output(const char* command, const char* label, const QByteArray& output)
{
    const char* text = output.constData(); // up to the first zero byte
    if (*text != '\0') {
        dbg_ostream(DBG_MODULE, __LINE__) << ": " << command << label << text << Qt::endl;
    }
}

} // namespace

void run_command(const char* command)
{
    auto* process = new QProcess;
    abandon(process);
    process->start(QString::fromLatin1(command), {}, QIODevice::ReadWrite);
    if (!process->waitForFinished(kFinishWaitMs)) {
        dbg_ostream(DBG_MODULE, __LINE__)
            << ": " << command << " failed: " << process->errorString() << Qt::endl;
    }
    log_output(command, " output: ", process->readAllStandardOutput());
    log_output(command, " error: ", process->readAllStandardError());
}

void system_reboot()
{
    run_command("/sbin/reboot");
}

void system_halt()
{
    run_command("/sbin/poweroff");
}
