#pragma once

#include "erase/process.h"
#include "work/work_widget.h"

/// What stands behind one drive's row. The screen only ever asks whether it is Running.
class WorkWidget::Worker {
public:
    Worker() = default;
    virtual ~Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    virtual void start(bool emulate) = 0;
    virtual void stop() = 0;
    /// The job in charge has ended.
    virtual void currentProcessFinished() = 0;
    [[nodiscard]] virtual Process::Status status() const = 0;
};
