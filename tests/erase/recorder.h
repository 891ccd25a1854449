#pragma once

#include <QStringList>

#include <functional>
#include <memory>

/// A job that keeps the hooks called, their text and the status seen in each, as in
/// "error: exit code: 2 3", and then does in the hook what the test wants to be done there.
template <typename Job>
class Recorder : public Job {
public:
    using Job::Job;

    /// The child process whose signal called the hook.
    [[nodiscard]] QObject* caller() const { return this->sender(); }

    const std::shared_ptr<QStringList> events = std::make_shared<QStringList>();
    std::function<void(const QString& seen)> inHook;

    void updateStatusRunning() override { record("running"); }
    void updateStatusStopped() override { record("stopped"); }
    void updateStatusError(const QString& message) override { record("error: " + message); }
    void updateStatusDone() override { record("done"); }
    void updateStandardOutput(const QString& line) override { record("out: " + line); }
    void updateStandardError(const QString& line) override { record("err: " + line); }

protected:
    void record(const QString& event)
    {
        const QString seen = event + ' ' + QString::number(this->status());
        *events << seen;
        const auto action = inHook; // it may end the recorder
        if (action)
            action(seen);
    }
};
