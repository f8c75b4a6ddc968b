// Captures the log of a test, and replaces the logger.
#pragma once

#include "testing/capturedLog.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgReader.h"
#include "zvbase/lgRegistry.h"
#include "zvbase/lgTrace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

class TestRegistry : public LgRegistry
{
public:
    void addQueue(LgQueue *queue) override
    {
        std::lock_guard const guard(_mutex);
        _queues.push_back(queue);
    }
    void removeQueue(LgQueue *queue) override
    {
        std::lock_guard const guard(_mutex);
        _queues.remove(queue);
    }
    List<LgQueue *> getQueues() override
    {
        std::lock_guard const guard(_mutex);
        return _queues;
    }

private:
    std::mutex _mutex;
    List<LgQueue *> _queues;
};

inline thread_local LgQueue *threadQueue = nullptr;

/// Logger without a thread. The test reads the queues. A thread that has written must call
/// `endThread` before it ends.
class TestLogger
{
public:
    TestLogger() : _registry(new TestRegistry)
    {
        ObjPtr<LgRegistry> registry(_registry);
        EXPECT_TRUE(LgLog::setRegistry(registry).isNull());
        LgLog::setQueueFunction(getThreadQueue);
        _reader.emplace();
        LgLog::setLoggerActive(true);
    }
    ~TestLogger() { stop(); }
    TestLogger(TestLogger const &) = delete;
    TestLogger &operator=(TestLogger const &) = delete;

    void stop()
    {
        if (!_reader)
            return;
        LgLog::setLoggerActive(false);
        flush();
        _reader.reset();
        LgLog::setQueueFunction(nullptr);
        if (threadQueue) {
            _registry->removeQueue(threadQueue);
            delete std::exchange(threadQueue, nullptr);
        }
        ObjPtr<LgRegistry> const former(LgLog::setRegistry(nullptr));
        EXPECT_EQ(former.get(), _registry);
    }

    LgReader &getReader() { return *_reader; }
    LgRegistry &getRegistry() { return *_registry; }
    int flush()
    {
        int lines = 0;
        while (_reader->flushEarliest())
            ++lines;
        return lines;
    }
    std::size_t getNbQueues() { return _registry->getQueues().size(); }

    static void endThread() { std::exchange(threadQueue, nullptr)->creatorExit(); }

    static LgQueue *getThreadQueue()
    {
        if (!threadQueue)
            threadQueue = new LgQueue(nextNumber++);
        return threadQueue;
    }

private:
    static inline std::atomic<unsigned long> nextNumber = 1;

    LgRegistry *_registry;
    std::optional<LgReader> _reader;
};

/// Fills the queue until no line fits. Returns the number of lines.
inline int fillQueue()
{
    LgQueue &queue = *TestLogger::getThreadQueue();
    int lines = 0;
    for (; !queue.isFull(); ++lines)
        LgTrace::print("x");
    return lines;
}

} // namespace ZvTest
