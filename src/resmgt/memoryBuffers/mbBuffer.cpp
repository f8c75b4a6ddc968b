#include "resmgt/memoryBuffers/mbBuffer.h"

#include "zvbase/scope.private.h"

#include <utility>

namespace Zv {

MbBuffer::MbBuffer() noexcept = default;
MbBuffer::MbBuffer(RCShdEngPtr<MbBufferImp> imp) : _imp(std::move(imp)) {}
MbBuffer::MbBuffer(MbBuffer const &) = default;
MbBuffer::MbBuffer(MbBuffer &&) noexcept = default;
MbBuffer::~MbBuffer() noexcept(false) = default;

MbBuffer const &MbBuffer::operator=(MbBuffer const &other)
{
    _imp = other._imp;
    return *this;
}

MbBuffer const &MbBuffer::operator=(MbBuffer &&other)
{
    _imp = std::move(other._imp);
    return *this;
}

char const *MbBuffer::getName() const
{
    return _imp->copyName().getChars();
}

bool MbBuffer::isLoaded() const
{
    return _imp->isLoaded();
}

void MbBuffer::prefetch()
{
    _imp->receive(MbEvent::PREFETCH);
}

void MbBuffer::sync()
{
    _imp->receive(MbEvent::SYNC);
}

void MbBuffer::asyncSync()
{
    _imp->receive(MbEvent::ASYNC_SYNC);
}

void MbBuffer::free()
{
    _imp->receive(MbEvent::FREE);
}

// ---- Guards

MbBufferGuard::MbBufferGuard() noexcept : _imp(nullptr) {}

MbBufferGuard::MbBufferGuard(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event) : _imp(imp.get())
{
    if (_imp)
        _imp->addHold(event);
}

MbBufferGuard::~MbBufferGuard() noexcept(false)
{
    if (_imp)
        throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] { letGo(); });
}

void MbBufferGuard::assign(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event)
{
    if (imp.get() == _imp)
        return;
    RCShdEngPtr<MbBufferImp> const next(imp);
    if (_imp)
        letGo();
    if (!next.isNull())
        next->addHold(event);
    _imp = next.get();
}

/// The guard is null from the beginning on, so that a failure leaves no hold behind.
void MbBufferGuard::letGo()
{
    std::exchange(_imp, nullptr)->releaseHold();
}

MbBufferRdGuardImp::MbBufferRdGuardImp() noexcept = default;

MbBufferRdGuardImp::MbBufferRdGuardImp(MbBuffer const &buffer)
    : MbBufferGuard(buffer.getImp(), MbEvent::RDLOCK)
{}

MbBufferRdGuardImp::MbBufferRdGuardImp(MbBufferRdGuardImp const &other)
    : MbBufferGuard(other.imp(), MbEvent::RDLOCK)
{}

MbBufferRdGuardImp &MbBufferRdGuardImp::operator=(MbBufferRdGuardImp const &other)
{
    assign(other.imp(), MbEvent::RDLOCK);
    return *this;
}

MbBufferRdGuardImp::~MbBufferRdGuardImp() noexcept(false) = default;

MbBufferWrGuardImp::MbBufferWrGuardImp() noexcept = default;

MbBufferWrGuardImp::MbBufferWrGuardImp(MbBuffer const &buffer)
    : MbBufferGuard(buffer.getImp(), MbEvent::WRLOCK)
{}

MbBufferWrGuardImp::MbBufferWrGuardImp(MbBufferWrGuardImp const &other)
    : MbBufferGuard(other.imp(), MbEvent::WRDUP)
{}

MbBufferWrGuardImp &MbBufferWrGuardImp::operator=(MbBufferWrGuardImp const &other)
{
    assign(other.imp(), MbEvent::WRDUP);
    return *this;
}

MbBufferWrGuardImp::~MbBufferWrGuardImp() noexcept(false) = default;

} // namespace Zv
