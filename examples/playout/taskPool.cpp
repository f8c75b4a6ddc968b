#include "taskPool.h"

using namespace Zv;

namespace {

constexpr unsigned STACK = 1 << 20; // bytes; decoders need a large stack
constexpr int CAPACITY = 256;

class Work final : public MtTaskImp
{
public:
    explicit Work(std::function<void()> work) : _work(std::move(work)) {}

    void execute() override { _work(); }

private:
    std::function<void()> _work;
};

} // namespace

TaskPool::TaskPool(char const *name, unsigned nbThreads)
    : MtThreadPool(name, nbThreads, false, STACK),
      _nbWaiting(name, 0),
      _lock(name),
      _done(name, LkPulse::WAKE_ALL)
{
    // If a worker cannot be started, the destructor does not run, so the other workers are ended
    // here.
    try {
        start();
    } catch (...) {
        stop();
        throw;
    }
}

TaskPool::~TaskPool() noexcept(false)
{
    stop();
}

void TaskPool::add(std::function<void()> work)
{
    {
        LkGuard<LkMutex const> const guard(_lock);
        while (_nbUnfinished == CAPACITY)
            _done.waitNextPulse(guard);
        _tasks.emplace_back(MtRequestTag(), RCShdPtr<MtTaskImp>(new Work(std::move(work))));
        ++_nbUnfinished;
    }
    _nbWaiting.post();
}

void TaskPool::finish()
{
    LkGuard<LkMutex const> const guard(_lock);
    while (_nbUnfinished > 0)
        _done.waitNextPulse(guard);
}

void TaskPool::obtainTask(unsigned)
{
    _nbWaiting.wait();
}

void TaskPool::executeTask(unsigned)
{
    MtTask task;
    {
        LkGuard<LkMutex const> const guard(_lock);
        if (!isRunning() || _tasks.empty())
            return;
        task = _tasks.front();
        _tasks.pop_front();
    }
    task.execute();
    LkGuard<LkMutex const> const guard(_lock);
    --_nbUnfinished;
    _done.pulse();
}

void TaskPool::stopThreads()
{
    for (unsigned i = 0; i < getNbThreads(); ++i)
        _nbWaiting.post();
}
