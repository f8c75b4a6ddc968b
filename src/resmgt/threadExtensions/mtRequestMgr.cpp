#include "resmgt/threadExtensions/mtRequestMgr.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkPulse.h"
#include "zvbase/failures.h"

namespace Zv {

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
    delete (*tag._id).second;
    _entries.erase(tag._id);
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
        tag._id->second = new LkPulse("RequestZero", LkPulse::WAKE_ALL);
    tag._id->second->wait(_lock);
}

// ---- MtRequestBase

MtRequestBase::MtRequestBase() = default;

MtRequestBase::MtRequestBase(MtRequestTag tag) : _tag(tag) {}

MtRequestBase::MtRequestBase(MtRequestBase const &) = default;

MtRequestBase &MtRequestBase::operator=(MtRequestBase const &) = default;

MtRequestBase::~MtRequestBase() noexcept(false) = default;

} // namespace Zv
