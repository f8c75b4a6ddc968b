// Work that others do meanwhile.
#pragma once

#include <resmgt/locks.h>
#include <resmgt/threadExtensions.h>

#include <functional>

/// A pool of threads that do what they are given, in its order. Any thread may give; a task throws nothing.
class TaskPool : public Zv::MtThreadPool
{
public:
    TaskPool(char const *name, unsigned nbThreads);
    /// Drops what nobody has begun.
    ~TaskPool() noexcept(false) override;

    /// Blocks while very much is waiting.
    void add(std::function<void()> work);
    /// Blocks until all that has been added is done.
    void finish();

private:
    void obtainTask(unsigned workerIndex) override;
    void executeTask(unsigned workerIndex) override;
    void stopThreads() override;

    Zv::LkUnnamedSema _nbWaiting; // and one for each worker that has to end
    Zv::LkMutex _lock;
    Zv::LkPulse _done;
    Zv::Deque<Zv::MtTask> _tasks;
    int _nbUnfinished = 0;
};
