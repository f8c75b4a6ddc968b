// Thread bodies that several programs use.
#pragma once

#include "simulated/scenario.h"

#include "resmgt/locks.h"
#include "resmgt/threads.h"

#include <functional>
#include <utility>

namespace Zv::Simulated {

/// Runs until it is stopped. It may be stopped before its body has begun.
class Loop : public MtThreadProtocol
{
public:
    explicit Loop(int &runs) : _runs(runs) {}
    ~Loop() noexcept(false) override = default;

    void performExecute(MtThread *thread) override
    {
        HOLDS(MtThreadMgr::findCurrentThread() == thread && thread->isRunning());
        ++_runs;
        _stop.wait();
        _stop.reset();
    }
    void performStop(MtThread *) override { _stop.set(); }

private:
    int &_runs;
    LkEvent _stop{"stop", false};
};

class Once : public MtThreadProtocol
{
public:
    explicit Once(std::function<void()> what) : _what(std::move(what)) {}
    ~Once() noexcept(false) override = default;
    void performExecute(MtThread *) override { _what(); }

private:
    std::function<void()> _what;
};

/// Sleeps until it is killed.
class Victim : public MtThreadProtocol
{
public:
    Victim(LkUnnamedSema &ready, int &cancelled) : _ready(ready), _cancelled(cancelled) {}
    ~Victim() noexcept(false) override = default;

    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        _ready.post();
        for (;;)
            ::Sleep(1000);
    }
    void performCanceled(MtThread *) override { ++_cancelled; }

private:
    LkUnnamedSema &_ready;
    int &_cancelled;
};

inline ObjPtrRet<MtThread> makeThread(char const *name, MtThreadProtocol *protocol)
{
    return MtThreadFactory::getInstance().createThread(name, ObjPtr<MtThreadProtocol>(protocol),
                                                       true, 0);
}

} // namespace Zv::Simulated
