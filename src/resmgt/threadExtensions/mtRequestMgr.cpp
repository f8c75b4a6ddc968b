#include "resmgt/threadExtensions/mtRequestMgr.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkPulse.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

/// Pulse of a tag. The tag uses it, and so does each thread that waits for the tag.
class RequestPulse : public LkPulse
{
public:
    RequestPulse() : LkPulse("RequestZero", WAKE_ALL) {}

    unsigned nbUsers = 1;
};

/// Destroys the pulse with its last user.
void letGo(RequestPulse *pulse)
{
    if (--pulse->nbUsers == 0)
        delete pulse;
}

} // namespace

// ---- MtRequestMgr

MtRequestMgr::MtRequestMgr() : _lock("MtRequestMgr") {}

MtRequestMgr::~MtRequestMgr() noexcept(false)
{
    for (MtRequestTag::Entry const &entry : _entries)
        delete entry.second;
}

MtRequestTag MtRequestMgr::acquireTag()
{
    LkGuard guard(_lock);
    return MtRequestTag(_entries.emplace(_entries.end(), 0U, nullptr));
}

void MtRequestMgr::releaseTag(MtRequestTag tag)
{
    LkGuard guard(_lock);
    ZV_ASSERT(tag.isValid());
    ZV_ASSERT((*tag._id).first == 0);
    auto * const pulse = static_cast<RequestPulse *>((*tag._id).second);
    _entries.erase(tag._id);
    if (pulse)
        letGo(pulse);
}

unsigned MtRequestMgr::getRequestCount(MtRequestTag tag)
{
    LkGuard guard(_lock);
    ZV_ASSERT(tag.isValid());
    return tag._id->first;
}

void MtRequestMgr::incRequestCount(MtRequestTag tag)
{
    LkGuard guard(_lock);
    ZV_ASSERT(tag.isValid());
    ++tag._id->first;
}

void MtRequestMgr::decRequestCount(MtRequestTag tag)
{
    LkGuard guard(_lock);
    ZV_ASSERT(tag.isValid());
    if (--tag._id->first == 0 && tag._id->second)
        tag._id->second->pulse();
}

void MtRequestMgr::waitRequestCountZero(MtRequestTag tag)
{
    LkGuard guard(_lock);
    ZV_ASSERT(tag.isValid());
    if (tag._id->first == 0)
        return;
    if (!tag._id->second)
        tag._id->second = new RequestPulse;
    auto * const pulse = static_cast<RequestPulse *>(tag._id->second);
    ++pulse->nbUsers;
    try {
        pulse->wait(_lock);
    } catch (...) {
        letGo(pulse);
        throw;
    }
    letGo(pulse); // the tag may have been released meanwhile
}

// ---- MtRequestBase

MtRequestBase::MtRequestBase() = default;

MtRequestBase::MtRequestBase(MtRequestTag tag) : _tag(tag) {}

MtRequestBase::MtRequestBase(MtRequestBase const &) = default;

MtRequestBase &MtRequestBase::operator=(MtRequestBase const &) = default;

MtRequestBase::~MtRequestBase() noexcept(false) = default;

} // namespace Zv
