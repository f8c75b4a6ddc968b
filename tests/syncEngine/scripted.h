// Sources and clients that a test controls.
#pragma once

#include "resmgt/syncEngine/seClientThread.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "testing/asleep.h"
#include "testing/failures.h"
#include "testing/journal.h"
#include "zvbase/assertions.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <ostream>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>

namespace ZvTest {

using namespace Zv;

/// A source that beats when the test calls `beat`.
class ScriptedSource : public SeSourceProtocol
{
public:
    explicit ScriptedSource(char const *name = "scripted") : _name(name) {}

    void start() override
    {
        record.add("start");
        if (onStart)
            onStart();
    }
    void stop() override
    {
        record.add("stop");
        if (onStop)
            onStop();
    }
    std::uint32_t waitSync() override
    {
        std::unique_lock guard(_mutex);
        _thread = threadNumber();
        ++_nbWaits;
        _changed.notify_all();
        _changed.wait(guard, [this] { return _isFree || !_counts.empty(); });
        if (_counts.empty())
            return ++_last;
        _last = _counts.front();
        _counts.pop_front();
        return _last;
    }
    double getRate() override { return 25.0; }
    char const *getName() override { return _name; }
    std::ostream &dump(std::ostream &stream) override { return stream << _name << " source"; }

    /// Sends one beat, with the next count or another one.
    void beat() { beat(getLast() + 1); }
    void beat(std::uint32_t count)
    {
        std::lock_guard const guard(_mutex);
        _counts.push_back(count);
        _changed.notify_all();
    }
    /// From now on every wait returns at once with a beat.
    void runFree()
    {
        std::lock_guard const guard(_mutex);
        _isFree = true;
        _changed.notify_all();
    }
    /// Blocks until so many waits have begun. Then all beats before the last wait have been
    /// handled.
    void awaitWaits(int nb)
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [&] { return _nbWaits >= nb; });
    }
    int getNbWaits()
    {
        std::lock_guard const guard(_mutex);
        return _nbWaits;
    }
    /// Returns the thread that waited last.
    long getThread()
    {
        std::lock_guard const guard(_mutex);
        return _thread;
    }

    Journal record;
    std::function<void()> onStart;
    std::function<void()> onStop;

private:
    std::uint32_t getLast()
    {
        std::lock_guard const guard(_mutex);
        return _counts.empty() ? _last : _counts.back();
    }

    char const *_name;
    std::mutex _mutex;
    std::condition_variable _changed;
    std::deque<std::uint32_t> _counts;
    std::uint32_t _last = 0;
    int _nbWaits = 0;
    bool _isFree = false;
    long _thread = 0;
};

/// A client that records its runs as "count late".
class ScriptedClient : public SeClientThread
{
public:
    ScriptedClient() = default;
    ~ScriptedClient() noexcept(false) override
    {
        if (nbDestroyed)
            ++*nbDestroyed;
        if (onDestruction)
            onDestruction();
    }

    /// Blocks until the client waits for a beat.
    void awaitAsleep() const
    {
        while (!_thread)
            std::this_thread::yield();
        waitUntilAsleep(_thread);
    }

    Journal record;
    std::function<bool(std::uint32_t, int)> onSync;
    int *nbDestroyed = nullptr;
    std::function<void()> onDestruction;

protected:
    void performStart() override
    {
        record.add("start");
        _thread = threadNumber();
    }
    bool performSync(std::uint32_t count, int late) override
    {
        record.add(std::to_string(count) + ' ' + std::to_string(late));
        return onSync && onSync(count, late);
    }
    void performEnd() override { record.add("end"); }

private:
    std::atomic<long> _thread = 0;
};

/// Returns true if `action`, on another thread, waits until `release` has been called.
inline bool isHeldUp(std::function<void()> const &action, std::function<void()> const &release)
{
    std::atomic<long> number = 0;
    std::atomic<bool> isOver = false;
    std::binary_semaphore end(0);
    std::thread thread([&] {
        number = threadNumber();
        action();
        isOver = true;
        end.acquire();
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    bool const wasHeldUp = !isOver;
    release();
    end.release();
    thread.join();
    return wasHeldUp;
}

} // namespace ZvTest
