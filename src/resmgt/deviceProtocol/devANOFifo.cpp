#include "resmgt/deviceProtocol/devANOFifo.h"

#include "platform/interlocked.h"

#include <cstdint>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

DevANOFifo::DevANOFifo(char const *name, int capacity)
    : _queue(name, static_cast<std::uint64_t>(capacity))
{}

DevANOFifo::~DevANOFifo() = default;

void DevANOFifo::produce(DevANOQueueEntry &entry)
{
    if (entry.isNull())
        RCExUtil::throwExNullPtr(); // here, and not on the thread that would execute it
    try {
        _queue.produce(entry);
    } catch (...) { // of an observer: the ANO is queued
        discardIfClosed();
        throw;
    }
    discardIfClosed();
}

std::exception_ptr DevANOFifo::send(ObjPtr<DevANO> ano)
{
    if (ano.isNull())
        RCExUtil::throwExNullPtr();
    DevANOQueueEntry entry(ano);
    try {
        produce(entry);
    } catch (...) {
        if (!entry.isNull())
            throw;
        return std::current_exception();
    }
    return nullptr;
}

DevANOQueueEntry DevANOFifo::consume()
{
    return _queue.consume();
}

bool DevANOFifo::tryConsume(DevANOQueueEntry &entry)
{
    return _queue.tryConsume(entry);
}

bool DevANOFifo::timedConsume(DevANOQueueEntry &entry, double seconds)
{
    return _queue.timedConsume(entry, seconds);
}

void DevANOFifo::close()
{
    Interlocked::storeRelease(_isClosed, true);
    discard();
}

void DevANOFifo::open()
{
    Interlocked::storeRelease(_isClosed, false);
}

void DevANOFifo::setObserver(RCShdPtr<DevANOQueue::Observer> const &observer)
{
    _queue.setObserver(observer);
}

// Looked at when the entry is in: both sides have been through the queue's lock by then, so that an entry is found
// either by the one who closes or by the one who brought it too late.
void DevANOFifo::discardIfClosed()
{
    if (Interlocked::loadAcquire(_isClosed))
        discard();
}

void DevANOFifo::discard()
{
    DevANOQueueEntry entry;
    while (_queue.tryConsume(entry))
        entry = DevANOQueueEntry();
}

} // namespace Zv
