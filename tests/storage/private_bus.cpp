#include "tests/storage/private_bus.h"

#include <csignal>
#include <sys/prctl.h>

PrivateBus::PrivateBus()
{
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", address().toLatin1());
    daemon_.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

PrivateBus::~PrivateBus()
{
    stop();
}

QString PrivateBus::address() const
{
    return QStringLiteral("unix:path=") + directory_.filePath(QStringLiteral("bus"));
}

bool PrivateBus::start()
{
    daemon_.start(QStringLiteral("dbus-daemon"),
                  {QStringLiteral("--session"), QStringLiteral("--nofork"),
                   QStringLiteral("--print-address"), QStringLiteral("--address=") + address()});
    // The address is printed once the bus listens.
    return daemon_.waitForReadyRead();
}

void PrivateBus::stop()
{
    daemon_.terminate();
    daemon_.waitForFinished();
}
