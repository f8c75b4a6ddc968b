#include "resmgt/threads/mtLogger.private.h"

#include "resmgt/locks/lkEvent.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/failures.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgReader.h"
#include "zvbase/platform/shared.h"
#include "zvbase/scope.private.h"

#include <cassert>
#include <cstdint>
#include <new>
#include <utility>

namespace Zv {

namespace {

using Guard = LkGuard<LkLock const>;

/// Returns false if memory is short. The line is then written later.
bool flushEarliest(LgReader &reader)
{
    try {
        return reader.flushEarliest();
    } catch (std::bad_alloc const &) {
        return false;
    }
}

/// The reader thread's own queue, which outlives that thread.
LgQueue *loggerThreadQueue = nullptr;

} // namespace

// ---- MtLogger

/// The members are destroyed from the last to the first.
struct MtLogger::State
{
    ObjPtr<LgRegistry> _formerRegistry;
    LkEvent _stopped{"Log_Reader_Stop", false};
    ObjPtr<LgReader> _reader;
    ObjPtr<MtThread> _thread;
    ObjPtr<PriorityRelation> _loggerPriority;
};

MtLogger::State *MtLogger::_state = nullptr;
constinit ZvPlatform::Shared<bool> MtLogger::_running{false};
unsigned MtLogger::_nbRuns = 0;
constinit ZvPlatform::Shared<unsigned> MtLogger::_run{0};

// A failure during the creation of a queue may be logged. That line must not ask for the queue.
LgQueue *MtLogger::getThreadQueue()
{
    static thread_local bool isCreating = false;
    if (isCreating)
        return nullptr;
    TemporaryValue const creating(isCreating, true);
    return ThreadsStatics::logQueue->getPointee()->getQueue();
}

void MtLogger::startLogger()
{
    ZV_ASSERT(!LgLog::isLoggerActive());
    ObjPtr<LgRegistry> registry(new Registry);
    _state = new State;
    try {
        _running.store(true, ZvPlatform::Order::RELAXED);
        _state->_formerRegistry = LgLog::setRegistry(registry);
        LgLog::setQueueFunction(&getThreadQueue);
        _run.store(++_nbRuns, ZvPlatform::Order::RELAXED);
        _state->_reader.reset(new LgReader);
        _state->_thread = MtThreadFactory::getInstance().createThread(
            "Log_Reader_Thread", ObjPtr<MtThreadProtocol>(new ReaderThread));
        _state->_loggerPriority.reset(new PriorityRelation(
            "LoggerPriority", RtPriorities::getInstance().getBaseLinePriority(),
            PriorityRelation::EQUAL, _state->_thread->getPriority()));
        _state->_thread->start();
        LgLog::setLoggerActive(true);
        enterThread();
    } catch (...) {
        LgLog::setLoggerActive(false);
        dismantle();
        throw;
    }
}

void MtLogger::stopLogger()
{
    ZV_ASSERT(LgLog::isLoggerActive());
    LgLog::setLoggerActive(false);
    dismantle().rethrowAlways();
}

FirstFailure MtLogger::dismantle()
{
    FirstFailure failure;
    if (!_state->_thread.isNull()) {
        failure.attempt([] {
            _state->_thread->stop();
            _state->_thread->join();
        });
    }
    // The destructors of a relation and of a thread solve the priority graph, which another thread
    // may have left invalid.
    failure.attempt([] { _state->_loggerPriority.reset(); });
    failure.attempt([] { _state->_thread.reset(); });
    failure.attempt([] { _state->_reader.reset(); });
    _run.store(0u, ZvPlatform::Order::RELAXED);
    LgLog::setQueueFunction(nullptr);
    failure.attempt([] { exitThread(); });
    ObjPtr<State> const state(std::exchange(_state, nullptr));
    ObjPtr<LgQueue> const readersQueue(std::exchange(loggerThreadQueue, nullptr));
    // The destructor of the registry writes what is left, as far as memory allows.
    failure.attempt([&state] {
        ObjPtr<LgRegistry> const registry(LgLog::setRegistry(state->_formerRegistry));
    });
    return failure;
}

LgQueue *MtLogger::enterThread()
{
    LgQueue * const queue = LgLog::getQueue();
    LgLog::registerQueue(queue);
    return queue;
}

unsigned MtLogger::getRun()
{
    return _run.load(ZvPlatform::Order::RELAXED);
}

void MtLogger::exitThread()
{
    ThreadsStatics::logQueue->performDelete();
}

void MtLogger::forgetThread()
{
    exitThread();
    ThreadsStatics::traces->performDelete();
}

// ---- QueueAdapter

MtLogger::QueueAdapter::QueueAdapter() : _queue(nullptr)
{
    ThreadsStatics::threadEnd->ask();
    ObjPtr<LgQueue> queue(new LgQueue(LkThreadId(LkThreadId::CURRENT_THREAD).getNumber()));
    queue->changeObserver(ObjPtr<LgQueue::Observer>(new QueueObserver));
    _queue = queue.release();
}

MtLogger::QueueAdapter::~QueueAdapter()
{
    if (_queue)
        _queue->creatorExit();
}

LgQueue *MtLogger::QueueAdapter::releaseQueue()
{
    return std::exchange(_queue, nullptr);
}

// ---- QueueObserver

MtLogger::QueueObserver::QueueObserver() : _lock("Queue_Observer_Lock"), _waitForChars(0) {}

MtLogger::QueueObserver::~QueueObserver() noexcept = default;

// Wakes the writer even if blocking trace has been disabled meanwhile, because the writer may still
// wait.
void MtLogger::QueueObserver::notify(LgQueue &queue)
{
    Guard const guard(_lock);
    if (_waitForChars == 0 || queue.isFull())
        return;
    assert(!_sema.isNull());
    if (queue.getStream().getNumCharacters() >= _waitForChars) {
        _waitForChars = 0;
        _sema->post();
    }
}

void MtLogger::QueueObserver::wait(LgQueue &queue, unsigned n)
{
    {
        Guard const guard(_lock);
        if (!queue.isFull() && queue.getStream().getNumCharacters() >= n)
            return;
        if (_sema.isNull())
            _sema.reset(new LkSema("Queue_Lock", 0));
        _waitForChars = n;
    }
    _sema->wait();
}

// ---- Registry

MtLogger::Registry::Registry() : _lock("LogRegistry_Lock") {}

MtLogger::Registry::~Registry() = default;

void MtLogger::Registry::addQueue(LgQueue *queue)
{
    Guard const guard(_lock);
    if (queue)
        _queues.add(queue);
}

void MtLogger::Registry::removeQueue(LgQueue *queue)
{
    Guard const guard(_lock);
    _queues.remove(queue);
}

List<LgQueue *> MtLogger::Registry::getQueues()
{
    Guard const guard(_lock);
    return _queues.entries();
}

bool MtLogger::Registry::hasQueue(LgQueue *queue)
{
    Guard const guard(_lock);
    return _queues.contains(queue);
}

// ---- ReaderThread

void MtLogger::ReaderThread::performExecute(MtThread *)
{
    LgReader &reader = *_state->_reader;
    LgQueue * const queue = LgLog::getQueue();
    {
        LgQueue::SuppressGuard const suppressOwnLines(*queue);
        std::uint8_t idle = 0;
        while (_running.load(ZvPlatform::Order::RELAXED)) {
            if (flushEarliest(reader)) {
                while (flushEarliest(reader)) {
                }
                idle = 0;
            }
            // Sleeps until the time is over or the logger is stopped.
            static_cast<void>(_state->_stopped.timedWait(static_cast<float>(idle) * 0.016f));
            if (idle < 20)
                ++idle;
        }
        while (flushEarliest(reader)) {
        }
    }
    LgLog::getRegistry().removeQueue(queue);
    ZV_ASSERT(loggerThreadQueue == 0);
    loggerThreadQueue = ThreadsStatics::logQueue->getPointee()->releaseQueue();
    exitThread();
}

void MtLogger::ReaderThread::performStop(MtThread *)
{
    _running.store(false, ZvPlatform::Order::RELAXED);
    _state->_stopped.set();
}

} // namespace Zv
