#include "resmgt/memoryBuffers/mbStateImp.private.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "resmgt/memoryBuffers/memoryBuffersStatics.private.h"
#include "zvbase/failures.h"
#include "zvbase/trace.h"
#include "zvbase/typeName.h"

#include <bit>
#include <new>
#include <typeinfo>

namespace Zv {

char const *nameOf(MbEvent event)
{
    static constexpr char const *names[] = {
        "rdlock", "wrlock", "wrdup", "prefetch", "asyncSync",        "sync",
        "unlock", "unload", "free",  "destroy",  "asyncOpSucceeded", "asyncOpFailed"};
    return names[std::countr_zero(static_cast<std::uint32_t>(event))];
}

void MbStateImp::rdlock(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::RDLOCK);
}

void MbStateImp::wrlock(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::WRLOCK);
}

void MbStateImp::wrdup(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::WRDUP);
}

void MbStateImp::prefetch(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::PREFETCH);
}

void MbStateImp::asyncSync(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::ASYNC_SYNC);
}

void MbStateImp::sync(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::SYNC);
}

void MbStateImp::unlock(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::UNLOCK);
}

void MbStateImp::unload(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::UNLOAD);
}

void MbStateImp::free(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::FREE);
}

void MbStateImp::destroy(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::DESTROY);
}

void MbStateImp::asyncOpSucceeded(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::ASYNC_OP_SUCCEEDED);
}

void MbStateImp::asyncOpFailed(MbBufferImp *buffer) const
{
    refuse(*buffer, MbEvent::ASYNC_OP_FAILED);
}

bool MbStateImp::isLoaded() const
{
    return false;
}

MbState const *MbStateImp::entering(MbBufferImp *) const
{
    return nullptr;
}

void MbStateImp::leaving(MbBufferImp *) const {}

std::string MbStateImp::getTypeName() const
{
    std::string const name = nameType(typeid(*this));
    static constexpr char marker[] = ">::";
    auto const scope = name.find(marker);
    return scope == std::string::npos ? name : name.substr(scope + sizeof marker - 1);
}

void MbStateImp::write(MbBufferImp const &buffer, char const *what) const
{
    try {
        ZV_TRACE(*MemoryBuffersStatics::mbBuffersLevel,
                 "MbBuffer : " << buffer.getName() << " [ Lock count = " << buffer.getLockCount()
                               << " ] -->  " << getTypeName() << "::" << what);
    } catch (std::bad_alloc const &) {
        // What happens to the buffer must not depend on whether it can be told.
    }
}

void MbStateImp::refuse(MbBufferImp const &buffer, MbEvent event) const
{
    ZV_THROW(MbEx::ExIllegalTransition, buffer.getName().getChars(),
             (std::string(nameOf(event)) + "()").c_str(), getTypeName().c_str());
}

} // namespace Zv
