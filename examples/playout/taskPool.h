// Pool of threads that run tasks in order.
#pragma once

#include <resmgt/locks.h>
#include <resmgt/threadExtensions.h>

#include <functional>

/// Pool of threads that begin tasks in the order in which they were added. A task must not throw.
/// Thread-safe.
class TaskPool : public Zv::MtThreadPool
{
public:
    TaskPool(char const *name, unsigned nbThreads);
    /// Waits for the tasks that run. Drops those that were not begun.
    ~TaskPool() noexcept(false) override;

    /// Adds a task. Blocks while 256 tasks are unfinished.
    void add(std::function<void()> work);
    /// Blocks until no task is unfinished.
    void finish();

private:
    void obtainTask(unsigned workerIndex) override;
    void executeTask(unsigned workerIndex) override;
    void stopThreads() override;

    Zv::LkUnnamedSema _nbWaiting; // tasks, and one for each worker that must end
    Zv::LkMutex _lock;
    Zv::LkPulse _done;
    Zv::Deque<Zv::MtTask> _tasks;
    int _nbUnfinished = 0;
};
