// Journal of the tests of buffers, and a protocol and a manager that write to it.
#pragma once

#include "resmgt/memoryBuffers.h"
#include "resmgt/memoryBuffers/mbStates.private.h"
#include "resmgt/memoryBuffers/mbUntoldUses.private.h"
#include "testing/capturedLog.h"
#include "testing/failures.h"
#include "testing/journal.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Zv {

/// The private members of a buffer. The caller must hold the mutex for all operations but `mutex`.
template <>
struct TestAccess<MbBufferImp>
{
    explicit TestAccess(MbBufferImp &buffer) : imp(buffer) {}
    explicit TestAccess(MbBuffer const &buffer) : imp(*buffer.getImp()) {}

    LkMutex const &mutex() const { return imp._mutex; }
    MbState const *state() const { return closed()._state; }
    std::string stateName() const { return static_cast<MbStateImp const *>(state())->getName(); }
    void setState(MbState const *state) { closed()._state = state; }
    int lockCount() const { return closed()._lockCount; }
    void setLockCount(int count) { closed()._lockCount = count; }
    std::uint32_t pending() const { return closed()._pending; }
    void setPending(std::uint32_t mask) { closed()._pending = mask; }
    LkThreadId owner() const { return closed()._transientStateOwner; }
    void setOwner(LkThreadId owner) { closed()._transientStateOwner = owner; }
    int waiters() const { return imp._waiters; }
    void announceChange() { imp.announceChange(); }
    /// Makes guards take the mutex.
    void close() { imp.close(); }
    long keepAlive() const { return imp._keepAlive.getValue(); }
    /// Returns true if guards lock and unlock the buffer without its mutex.
    bool isOpen() const { return !MbWord::isClosed(imp._word.load(ZvPlatform::Order::ACQUIRE)); }

    MbBufferImp &imp;

private:
    /// The members are valid while the word is closed.
    MbBufferImp &closed() const
    {
        imp.close();
        return imp;
    }
};

/// The private members of a manager.
template <>
struct TestAccess<MbPoolManager>
{
    /// Returns the number of threads that wait for memory.
    static int waiters(MbPoolManager const &manager)
    {
        LkGuard<LkMutex const> const guard(manager._mutex);
        return manager._waiters;
    }
    /// Returns true if no thread waits while there is a buffer to evict.
    static bool isFair(MbPoolManager const &manager)
    {
        LkGuard<LkMutex const> const guard(manager._mutex);
        return manager._waiters == 0 || manager._strategy->isEmpty();
    }
    /// Lets a thread end while it holds the mutex. The next thread that wants it is refused.
    static void abandonMutex(MbPoolManager const &manager)
    {
        std::thread([&]() ZV_NO_THREAD_SAFETY_ANALYSIS { manager._mutex.lock(); }).join();
    }
};

} // namespace Zv

namespace ZvTest {

using namespace Zv;

using MbBufferProbe = TestAccess<MbBufferImp>;
using MbManagerProbe = TestAccess<MbPoolManager>;

/// Enables the level "MbBuffers", and collects the trace lines that contain a text, from that text
/// on.
class TraceCapture
{
public:
    explicit TraceCapture(std::string beginning = "MbBuffer : ") : _beginning(std::move(beginning))
    {
        LgLog::flush();
        _log.emplace();
        Trace::setEnabled("MbBuffers", true);
    }
    ~TraceCapture()
    {
        Trace::setEnabled("MbBuffers", false);
        LgLog::flush();
    }
    TraceCapture(TraceCapture const &) = delete;
    TraceCapture &operator=(TraceCapture const &) = delete;

    Lines take()
    {
        LgLog::flush();
        return linesFrom(_beginning, _log->take());
    }

private:
    std::string const _beginning;
    std::optional<CapturedLog> _log;
};

/// Writes its calls to the log, and then calls the hooks of the test.
class RecordingProtocol : public MbProtocol
{
public:
    using Hook = std::function<void()>;

    struct Control
    {
        Journal log;
        std::map<std::string, Hook> hooks;
        std::function<void(std::string const &)> hook; // at each call
        void *memory = nullptr;
        std::uint64_t size = 0;
        LkAsyncHandle *handle = nullptr;
    };

    explicit RecordingProtocol(std::shared_ptr<Control> control) : _control(std::move(control)) {}
    ~RecordingProtocol() noexcept(false) override { _control->log.add("~protocol"); }

    void load(void *memory, std::uint64_t size) override { call("load", memory, size); }
    void asyncLoad(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        begin("asyncLoad", memory, size, handle);
    }
    void asyncLoadSucceeded() override { tell("asyncLoadSucceeded"); }
    void asyncLoadFailed() override { tell("asyncLoadFailed"); }
    void reload(void *memory, std::uint64_t size) override { call("reload", memory, size); }
    void asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        begin("asyncReload", memory, size, handle);
    }
    void asyncReloadSucceeded() override { tell("asyncReloadSucceeded"); }
    void asyncReloadFailed() override { tell("asyncReloadFailed"); }
    void unlocked(void *memory, std::uint64_t size) override { call("unlocked", memory, size); }
    void sync(void *memory, std::uint64_t size) override { call("sync", memory, size); }
    void asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle) override
    {
        begin("asyncSync", memory, size, handle);
    }
    void asyncSyncSucceeded() override { tell("asyncSyncSucceeded"); }
    void asyncSyncFailed() override { tell("asyncSyncFailed"); }
    void unload(void *memory, std::uint64_t size) override { call("unload", memory, size); }
    void free(void *memory, std::uint64_t size) override { call("free", memory, size); }
    void markDirty(void *memory, std::uint64_t size) override { call("markDirty", memory, size); }

private:
    void tell(char const *name)
    {
        _control->log.add(name);
        if (_control->hook)
            _control->hook(name);
        auto const hook = _control->hooks.find(name);
        if (hook != _control->hooks.end() && hook->second)
            hook->second();
    }
    void call(char const *name, void *memory, std::uint64_t size)
    {
        _control->memory = memory;
        _control->size = size;
        tell(name);
    }
    void begin(char const *name, void *memory, std::uint64_t size, LkAsyncHandle *handle)
    {
        _control->handle = handle;
        call(name, memory, size);
    }

    std::shared_ptr<Control> _control;
};

/// Gives memory to every buffer without a limit, and writes its calls to the log.
class RecordingManager : public MbManager
{
public:
    explicit RecordingManager(Journal &log) : _log(log), _name("recording") {}

    LiString const &getName() const override { return _name; }
    void allocateRegion(MbBufferImp *buffer) override
    {
        say(*buffer, "allocateRegion");
        // Scenes give a region to every state, even to states without memory.
        delete[] reinterpret_cast<char *>(buffer->getRegionStart());
        auto const total =
            static_cast<std::uint64_t>(buffer->getSize()) + buffer->getAlignment().getRoundUpMax(1);
        buffer->setRegion(reinterpret_cast<std::uintptr_t>(new char[total]), total);
    }
    void deallocateRegion(MbBufferImp *buffer) override
    {
        say(*buffer, "deallocateRegion");
        delete[] reinterpret_cast<char *>(buffer->getRegionStart());
        buffer->clearRegion();
    }
    void bufferNotUnloadable(MbBufferImp *buffer) override { say(*buffer, "bufferNotUnloadable"); }
    void bufferUnloadable(MbBufferImp *buffer) override { say(*buffer, "bufferUnloadable"); }
    void dump(std::ostream &) const override {}

    /// Called at each call. May throw.
    std::function<void(std::string const &)> hook;

private:
    void say(MbBufferImp &buffer, char const *what)
    {
        EXPECT_TRUE(MbBufferProbe(buffer).mutex().isLocked()) << what;
        _log.add(what);
        // A copy, because the hook may be replaced meanwhile.
        if (auto const current = hook)
            current(what);
    }

    Journal &_log;
    LiString _name;
};

/// The exception of a protocol that fails.
struct Failure : std::runtime_error
{
    explicit Failure(std::string const &what) : std::runtime_error(what) {}
};

/// Returns when the condition is true.
template <class Condition>
void waitUntil(Condition condition)
{
    while (!condition())
        std::this_thread::yield();
}

/// Returns when `count` threads wait for a change of the buffer.
inline void waitForWaiters(MbBuffer const &buffer, int count)
{
    MbBufferProbe const probe(buffer);
    waitUntil([&] {
        LkGuard<LkMutex const> const guard(probe.mutex());
        return probe.waiters() == count;
    });
}

inline void waitForWaiters(MbPoolManager const &manager, int count)
{
    waitUntil([&] { return MbManagerProbe::waiters(manager) == count; });
}

inline std::string stateOf(MbBuffer const &buffer)
{
    MbBufferProbe const probe(buffer);
    LkGuard<LkMutex const> const guard(probe.mutex());
    return probe.stateName();
}

inline MbState const *initialState(bool trace = false)
{
    return MbStateMachine::getInstance(trace).getInitialState();
}

} // namespace ZvTest
