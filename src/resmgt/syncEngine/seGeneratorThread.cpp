#include "resmgt/syncEngine/seGeneratorThread.private.h"

#include "resmgt/syncEngine/seSourceProtocol.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/traceEvents.h"

#include <algorithm>
#include <sstream>

namespace Zv {

SeGeneratorThread::SeGeneratorThread(SeSourceProtocol &source)
    : _source(&source),
      _mutex("SeGeneratorThread"),
      _beat("SeGeneratorThread", LkPulse::WAKE_ALL),
      _stateChanged("SourceStateChanged", LkPulse::WAKE_ALL)
{}

SeGeneratorThread::~SeGeneratorThread() noexcept(false)
{
    Guard const guard(_mutex);
    ZV_ASSERT_IN_DESTRUCTOR(_sourceState == STARTING || _sourceState == STOPPED);
}

void SeGeneratorThread::performAttach(MtThread *thread)
{
    _priority = &thread->getPriority();
    _rtRelation.reset(new PriorityRelation("rt<sync-gen",
                                           RtPriorities::getInstance().getRealTimePriority(),
                                           PriorityRelation::LESS, *_priority));
}

void SeGeneratorThread::performDetach(MtThread *)
{
    _rtRelation.reset();
    _priority = nullptr;
}

void SeGeneratorThread::performExecute(MtThread *)
{
    Guard guard(_mutex);
    _source->start();
    guard.unlock();
    std::uint32_t const last = _source->waitSync();
    ZV_ASSERT(last != 0);
    guard.relock();
    _count = last;
    setState(BEATING);
    // After a removal, clients may be past their wake-ups of grace. They need a pulse for this
    // beat.
    if (_hasPulsed)
        pulse();
    while (_sourceState != STOPPING && _sourceState != STOPPED) {
        guard.unlock();
        std::uint32_t const count = _source->waitSync();
        TraceEvents::instant("clock", "beat", {}, count);
        guard.relock();
        _count = count;
        if (_sourceState == BEATING)
            pulse();
    }
    _source->stop();
}

void SeGeneratorThread::performStop(MtThread *thread)
{
    Guard guard(_mutex);
    // If the thread was never started, there is no beat.
    while (_sourceState == STARTING && thread->isRunning())
        _stateChanged.waitNextPulse(_mutex);
    if (_sourceState == STOPPING || _sourceState == STOPPED)
        return;
    setState(STOPPING);
    for (MtThread * const client : _clients)
        client->stop();
    pulse();
    FirstFailure failure;
    while (!_clients.empty()) {
        ObjPtr<MtThread> client(_clients.front());
        _clients.pop_front();
        guard.unlock();
        failure.attempt([&client] {
            client->join();
            client.reset(); // without the lock, because the destructor of a client may do anything
        });
        guard.relock();
    }
    setState(STOPPED);
    failure.rethrow();
}

void SeGeneratorThread::dump(std::ostream &stream) const
{
    std::ostringstream text; // the caller's stream is written without the mutex
    {
        Guard const guard(_mutex);
        for (MtThread const * const client : _clients) {
            text << '\n';
            client->dump(text);
        }
    }
    stream << "Source: " << *_source << text.str();
}

void SeGeneratorThread::addClient(LiString const &name, ObjPtr<SeClientThread> &client,
                                  std::int32_t divisor, MtThreadFactory &factory)
{
    Guard guard(_mutex);
    ZV_ASSERT(_sourceState != STOPPING && _sourceState != STOPPED);
    SeClientThread &added = *client;
    auto const clientThreadIter = find(&added);
    ZV_ASSERT(clientThreadIter == _clients.end());
    ObjPtr<MtThreadProtocol> protocol(client);
    ObjPtr<MtThread> thread(factory.createThread(name, protocol, true, 0));
    _clients.push_back(thread.get());
    try {
        added.setupNoLock(_priority, &_mutex, &_beat, &_count, divisor);
        thread->start();
    } catch (...) {
        _clients.pop_back();
        thread->stop();
        // The client, which has not waited for a beat yet, needs the lock to end.
        guard.unlock();
        throw;
    }
    static_cast<void>(thread.release());
}

ObjPtrRet<SeClientThread> SeGeneratorThread::removeClient(SeClientThread *client)
{
    Guard guard(_mutex);
    ZV_ASSERT(_sourceState != STOPPING && _sourceState != STOPPED);
    auto const clientThreadIter = find(client);
    ZV_ASSERT(clientThreadIter != _clients.end());
    MtThread * const thread = *clientThreadIter;
    thread->stop();
    if (_sourceState != BEATING)
        pulse();
    guard.unlock();
    thread->join();
    // Removing the relations and the thread solves the priority graph. If another thread has made
    // the graph invalid, the client is removed all the same.
    auto const regardless = [](auto const &step) {
        try {
            step();
        } catch (PriorityEx const &) {
        }
    };
    regardless([client] { client->setupNoLock(nullptr, nullptr, nullptr, nullptr, 0); });
    guard.relock();
    ObjPtr<MtThreadProtocol> protocol;
    regardless([&] { protocol = thread->detachProtocol(); });
    if (!protocol)
        protocol = thread->detachProtocol(); // does not fail, because the relations are gone
    _clients.erase(clientThreadIter);
    regardless([thread] { ObjPtr<MtThread> const removed(thread); });
    return ObjPtrRet<SeClientThread>(static_cast<SeClientThread *>(protocol.release()));
}

bool SeGeneratorThread::hasClient(SeClientThread const *client) const
{
    Guard const guard(_mutex);
    return find(client) != _clients.end();
}

bool SeGeneratorThread::isState(SourceState state) const
{
    Guard const guard(_mutex);
    return _sourceState == state;
}

void SeGeneratorThread::waitState(SourceState state) const
{
    Guard const guard(_mutex);
    while (_sourceState < state)
        _stateChanged.waitNextPulse(_mutex);
}

void SeGeneratorThread::setState(SourceState state)
{
    _sourceState = state;
    _stateChanged.pulse();
}

void SeGeneratorThread::pulse()
{
    _hasPulsed = true;
    _beat.pulse();
}

SeGeneratorThread::Clients::const_iterator
SeGeneratorThread::find(SeClientThread const *client) const
{
    return std::find_if(_clients.begin(), _clients.end(), [client](MtThread const *thread) {
        return thread->getProtocol() == client;
    });
}

} // namespace Zv
