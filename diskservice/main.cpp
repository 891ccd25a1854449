#include "diskservice/bus/bus_objects.h"
#include "diskservice/options.h"
#include "diskservice/source/block_device_source.h"
#include "diskservice/source/device_monitor.h"
#include "diskservice/source/image_source.h"
#include "posix/exit_code.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QSocketNotifier>

#include <sys/signalfd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

// diskservice: lists drives on the message bus; see vantrelleplus-diskservice(8).

namespace {

ExitCode fail(const QString& message)
{
    std::cerr << "diskservice: " << message.toStdString() << std::endl;
    return ExitCode::Failure;
}

ExitCode show(const std::string& text)
{
    std::cout << text << std::flush;
    return std::cout ? ExitCode::Success : fail("standard output: cannot be written");
}

// A descriptor that becomes readable when the service is asked to end. The signals have to
// be blocked before Qt starts its threads, so that these have them blocked too.
int end_signals()
{
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGTERM);
    sigaddset(&endSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    return signalfd(-1, &endSignals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// Empty when the service owns its name, else why not.
QString acquire_name(const QDBusConnection& bus)
{
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply =
        bus.interface()->registerService(BusObjects::kBusName);
    if (!reply.isValid()) {
        return BusObjects::kBusName + ": " + reply.error().message();
    }
    if (reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        return BusObjects::kBusName + ": another program has this name on the bus";
    }
    return {};
}

DeviceSource make_source(const Options& options)
{
    if (options.images.empty()) {
        return BlockDeviceSource(options.root);
    }
    return ImageSource(options.images);
}

ExitCode serve(const Options& options, int argc, char** argv)
{
    const int endDescriptor = end_signals();
    if (endDescriptor < 0) {
        return fail("signals: cannot be waited for");
    }
    const QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        return fail("system bus: connect: " + bus.lastError().message());
    }

    // Listened to before the first look, so that no device comes unseen in between.
    std::unique_ptr<DeviceMonitor> monitor;
    if (options.images.empty() && options.root.empty()) {
        monitor = std::make_unique<DeviceMonitor>();
    }
    BusObjects service(make_source(options), options.root);
    if (monitor) {
        QObject::connect(monitor.get(), &DeviceMonitor::changed, &service,
                         [&service, bus] { service.refresh(bus); });
    }
    const QSocketNotifier endNotifier(endDescriptor, QSocketNotifier::Read);
    QObject::connect(&endNotifier, &QSocketNotifier::activated, &application,
                     [] { QCoreApplication::exit(static_cast<int>(ExitCode::Success)); });
    bus.connect({}, "/org/freedesktop/DBus/Local", "org.freedesktop.DBus.Local", "Disconnected",
                &service, SIGNAL(busLost()));
    QObject::connect(&service, &BusObjects::busLost, &application, [] {
        QCoreApplication::exit(static_cast<int>(fail("the message bus has gone")));
    });

    if (!bus.registerVirtualObject(BusObjects::kPath, &service, QDBusConnection::SubPath)) {
        return fail(BusObjects::kPath + ": cannot be registered");
    }
    if (const QString problem = acquire_name(bus); !problem.isEmpty()) {
        return fail(problem);
    }
    const int exitCode = QCoreApplication::exec();
    // A drive that hangs can keep this process from ending; the name is free all the same.
    bus.interface()->unregisterService(BusObjects::kBusName);
    return static_cast<ExitCode>(exitCode);
}

ExitCode run(const Options& options, int argc, char** argv)
{
    switch (options.action) {
    case Options::Action::ShowHelp:
        return show(kHelpText);
    case Options::Action::ShowVersion:
        return show("diskservice " VANTRELLE_VERSION "\n");
    case Options::Action::Serve:
        break;
    }
    return serve(options, argc, argv);
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return static_cast<int>(run(parse_options({argv + 1, argv + argc}), argc, argv));
    } catch (const UsageError& error) {
        std::cerr << "diskservice: " << error.what() << "\nTry: diskservice --help" << std::endl;
        return static_cast<int>(ExitCode::Usage);
    } catch (const std::exception& error) {
        return static_cast<int>(fail(error.what()));
    }
}
