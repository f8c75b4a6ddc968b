// Helpers for tests of threads.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "testing/asleep.h"
#include "testing/failures.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <ostream>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

namespace Zv {

template <>
struct TestAccess<MtThread>
{
    static void setCanStart(bool canStart)
    {
        MtThread::_canStart.store(canStart, ZvPlatform::Order::RELEASE);
    }
};

template <>
struct TestAccess<MtSpecificDataRegistry>
{
    static std::size_t countEntries(MtOpaqueData const *data)
    {
        MtSpecificDataRegistry &registry = MtSpecificDataRegistry::getInstance();
        LkGuard<LkRecLock const> const guard(registry._lock);
        std::size_t count = 0;
        for (auto const &entry : registry._entries)
            count += entry.second == data;
        return count;
    }
    static bool hasEntry(MtOpaqueData const *data, LkThreadId thread)
    {
        MtSpecificDataRegistry &registry = MtSpecificDataRegistry::getInstance();
        LkGuard<LkRecLock const> const guard(registry._lock);
        auto const [first, end] = registry._entries.equal_range(thread);
        return std::any_of(first, end, [data](auto const &entry) { return entry.second == data; });
    }
};

} // namespace Zv

namespace ZvTest {

using namespace Zv;

/// Thread that does nothing.
class StubThread : public MtThread
{
public:
    ~StubThread() noexcept(false) override = default;
    void start() override {}
    void stop() override {}
    void join() override {}
    void cancel() override {}
    void testCancel() override {}
    bool isRunning() const override { return false; }
    bool isCancelable() const override { return false; }
    LiString getName() const override { return "stub"; }
    Priority &getPriority() override { throw 1; }
    MtThreadProtocol *getProtocol() const override { return nullptr; }
    MtThreadProtocol *getProtocolNoLock() const override { return nullptr; }
    ObjPtrRet<MtThreadProtocol> detachProtocol() override { return nullptr; }
    LkThreadId getThreadId() const override { return LkThreadId(); }
    void dump(std::ostream &) const override {}
    bool enableCancel() override { return false; }
    bool disableCancel() override { return false; }

protected:
    void setPriorityValue(int) override {}
    void applyProcessorNb() override {}
    void threadEnded() override {}
    void setProcessorNbNoLock(int) override {}
};

/// If set, maps the time-outs of all timed waits, in milliseconds.
inline std::atomic<unsigned (*)(unsigned milliseconds)> mapTimeout = nullptr;

/// Protocol that runs a callable. `performStop` ends `waitForStop`.
class TestProtocol : public MtThreadProtocol
{
public:
    using Body = std::function<void(TestProtocol &, MtThread *)>;

    explicit TestProtocol(Body body) : _body(std::move(body)) {}

    void performExecute(MtThread *thread) override { _body(*this, thread); }
    void performStop(MtThread *) override { _stop.release(); }
    void waitForStop() { _stop.acquire(); }

private:
    Body _body;
    std::counting_semaphore<> _stop{0};
};

inline ObjPtrRet<MtThread> makeThread(char const *name, TestProtocol::Body body,
                                      unsigned stackSize = 0)
{
    return MtThreadFactory::getInstance().createThread(
        name, ObjPtr<MtThreadProtocol>(new TestProtocol(std::move(body))), true, stackSize);
}

/// Returns a thread that waits until it is stopped.
inline ObjPtrRet<MtThread> makeWaitingThread(char const *name = "waiting")
{
    return makeThread(name, [](TestProtocol &protocol, MtThread *) { protocol.waitForStop(); });
}

/// Runs `body` on a thread that the library did not make, and frees that thread's data.
inline void runStranger(std::function<void()> const &body)
{
    std::thread([&body] {
        body();
        MtSpecificDataRegistry::getInstance().removeSpecificData();
    }).join();
}

/// Checks whether `action` waits for a lock that the calling thread holds. Runs it on a thread of
/// its own, which the destructor joins.
class Blocked
{
public:
    explicit Blocked(std::function<void()> action)
        : _thread([this, action = std::move(action)] {
              _number = threadNumber();
              action();
              _isOver = true;
          })
    {
        while (!_number)
            std::this_thread::yield();
        while (!_isOver && !isAsleep(_number))
            std::this_thread::yield();
        _wasBlocked = !_isOver;
    }
    ~Blocked() { _thread.join(); }
    bool wasBlocked() const { return _wasBlocked; }

private:
    std::atomic<long> _number{0};
    std::atomic<bool> _isOver{false};
    bool _wasBlocked = false;
    std::thread _thread;
};

/// Fixture that lets threads start, whether the packages are up or not.
class ThreadTest : public testing::Test
{
protected:
    void SetUp() override { TestAccess<MtThread>::setCanStart(true); }
};

} // namespace ZvTest
