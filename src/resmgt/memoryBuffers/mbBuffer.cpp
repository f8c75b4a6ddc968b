#include "resmgt/memoryBuffers/mbBuffer.h"

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

} // namespace Zv
