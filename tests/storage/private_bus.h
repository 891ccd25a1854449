#pragma once

#include <QProcess>
#include <QTemporaryDir>

/// A message bus of the test's own, which this process takes for the system bus. Make it
/// before the first bus call: the bus library reads the address only once, so one process
/// has one private bus. It may be started and stopped any number of times, and it ends with
/// the test, however that ends.
class PrivateBus {
public:
    /// Starts nothing yet.
    PrivateBus();
    ~PrivateBus();

    [[nodiscard]] QString address() const;

    /// False when the bus daemon could not be started.
    [[nodiscard]] bool start();
    void stop();

private:
    QTemporaryDir directory_;
    QProcess daemon_;
};
