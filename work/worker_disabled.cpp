#include "work/worker_disabled.h"

WorkWidget::WorkerDisabled::WorkerDisabled(const Drive& drive, QProgressBar* progressBar)
    : drive_(drive), progressBar_(progressBar)
{
}

void WorkWidget::WorkerDisabled::start(bool)
{
}

void WorkWidget::WorkerDisabled::stop()
{
}

void WorkWidget::WorkerDisabled::currentProcessFinished()
{
}

Process::Status WorkWidget::WorkerDisabled::status() const
{
    return Process::Done;
}
