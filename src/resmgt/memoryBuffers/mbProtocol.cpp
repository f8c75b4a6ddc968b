#include "resmgt/memoryBuffers/mbProtocol.h"

#include "resmgt/locks/lkAsyncHandle.h"

namespace Zv {

namespace {

/// Runs the synchronous form of an operation, and reports its end.
template <class Operation>
void carryOut(LkAsyncHandle *handle, Operation operation)
{
    try {
        operation();
    } catch (...) {
        handle->performFailed();
        return;
    }
    handle->performSucceeded();
}

} // namespace

MbProtocol::MbProtocol() = default;
MbProtocol::MbProtocol(MbProtocol const &) = default;
MbProtocol &MbProtocol::operator=(MbProtocol const &) = default;
MbProtocol::~MbProtocol() noexcept(false) = default;

void MbProtocol::load(void *memory, std::uint64_t size)
{
    reload(memory, size);
}

void MbProtocol::asyncLoad(void *memory, std::uint64_t size, LkAsyncHandle *handle)
{
    asyncReload(memory, size, handle);
}

void MbProtocol::asyncLoadSucceeded()
{
    asyncReloadSucceeded();
}

void MbProtocol::asyncLoadFailed()
{
    asyncReloadFailed();
}

void MbProtocol::reload(void *, std::uint64_t) {}

void MbProtocol::asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle)
{
    carryOut(handle, [&] { reload(memory, size); });
}

void MbProtocol::asyncReloadSucceeded() {}
void MbProtocol::asyncReloadFailed() {}
void MbProtocol::unlocked(void *, std::uint64_t) {}

void MbProtocol::sync(void *memory, std::uint64_t size)
{
    unload(memory, size);
}

void MbProtocol::asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle)
{
    carryOut(handle, [&] { sync(memory, size); });
}

void MbProtocol::asyncSyncSucceeded() {}
void MbProtocol::asyncSyncFailed() {}
void MbProtocol::unload(void *, std::uint64_t) {}
void MbProtocol::free(void *, std::uint64_t) {}
void MbProtocol::markDirty(void *, std::uint64_t) {}

} // namespace Zv
