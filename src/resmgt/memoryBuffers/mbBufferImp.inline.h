// Inline bodies of the object behind a buffer (extenders).
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"

namespace Zv {

template <class Operation>
void MbBufferImp::callProtocol(Operation operation)
{
    struct Bracket
    {
        explicit Bracket(MbBufferImp &buffer) : _buffer(buffer) { _buffer.letGo(); }
        ~Bracket() noexcept(false) { _buffer.takeBack(); }

        MbBufferImp &_buffer;
    };

    void * const memory = reinterpret_cast<void *>(_dataStart);
    std::uint64_t const size = _dataEnd - _dataStart;
    Bracket const bracket(*this);
    operation(*_protocol, memory, size);
}

} // namespace Zv
