// Counts requests under tags.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/threadExtensions/mtRequestTag.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// Lets a client wait until all requests of a tag are done. Each owner makes its own manager. For each batch: acquire a
/// tag, count the requests up as they are sent and down as they are done, wait for zero, release the tag.
///
/// Any thread. All operations with an invalid tag fail the assertion "tag.isValid()". A released tag is not to be used.
class ZVRESMGT_EXPORT MtRequestMgr
{
public:
    MtRequestMgr();
    /// Nobody waits any more.
    ~MtRequestMgr() noexcept(false);
    MtRequestMgr(MtRequestMgr const &) = delete;
    MtRequestMgr &operator=(MtRequestMgr const &) = delete;

    /// A new count of 0.
    MtRequestTag acquireTag();
    /// Asserts that the count is 0.
    void releaseTag(MtRequestTag tag);
    unsigned getRequestCount(MtRequestTag tag);
    void incRequestCount(MtRequestTag tag);
    /// At 0 it wakes those who wait. A count below 0 wraps around, unreported.
    void decRequestCount(MtRequestTag tag);
    /// Blocks until the count reaches 0. Only the first time counts: once a tag has been waited for and has reached 0,
    /// each later wait for it returns at once, whatever the count. So each batch takes a tag of its own.
    void waitRequestCountZero(MtRequestTag tag);

private:
    MtRequestTag::EntryList _entries ZV_GUARDED_BY(_lock);
    LkMutex _lock;
};

} // namespace Zv
