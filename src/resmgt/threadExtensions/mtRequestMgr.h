// Requests, and the counting of requests that are under way (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkMutex.h"
#include "zvbase/threadAnnotations.h"

#include <list>
#include <utility>

namespace Zv {

class LkPulse;

/// Names one count of an `MtRequestMgr`, which hands it out. It is passed by value and is valid
/// until it is released. See `MtRequestMgr` for an example.
class ZVRESMGT_EXPORT MtRequestTag
{
public:
    /// The number of requests under way, and the pulse that is sent at 0. The pulse is null until a
    /// thread waits.
    using Entry = std::pair<unsigned, LkPulse *>;
    /// The entries of one manager.
    using EntryList = std::list<Entry>;

    /// Constructs an invalid tag.
    MtRequestTag() = default;
    /// Constructs the tag of an entry. For `MtRequestMgr`.
    explicit MtRequestTag(EntryList::iterator id) : _id(id), _isValid(true) {}

    bool isValid() const { return _isValid; }
    /// Returns true if both tags name the same entry, or both are invalid.
    friend bool operator==(MtRequestTag const &left, MtRequestTag const &right)
    {
        return left._isValid == right._isValid && (!left._isValid || left._id == right._id);
    }

private:
    friend class MtRequestMgr;

    EntryList::iterator _id;
    bool _isValid = false;
};

/// Counts requests under tags, so that a thread can wait until all requests of a batch are done.
///
///     MtRequestMgr mgr;
///     MtRequestTag const tag = mgr.acquireTag();
///     mgr.incRequestCount(tag); // for each request that is sent
///     mgr.decRequestCount(tag); // for each request that is done, usually in another thread
///     mgr.waitRequestCountZero(tag);
///     mgr.releaseTag(tag);
///
/// **Threads**: thread-safe, except the destructor. No thread may wait when the manager is
/// destroyed.
///
/// **Throws**: each operation fails the assertion "tag.isValid()" if the tag is invalid. A tag must
/// not be used after it was released. This is not detected.
class ZVRESMGT_EXPORT MtRequestMgr
{
public:
    MtRequestMgr();
    ~MtRequestMgr() noexcept(false);
    MtRequestMgr(MtRequestMgr const &) = delete;
    MtRequestMgr &operator=(MtRequestMgr const &) = delete;

    /// Returns a new tag with a count of 0. The caller must release it.
    [[nodiscard]] MtRequestTag acquireTag();
    /// Releases a tag. Fails an assertion if the count is not 0. A thread that still waits for the
    /// tag, because it has not run since the count reached 0, returns from
    /// `waitRequestCountZero` as usual.
    void releaseTag(MtRequestTag tag);
    /// Returns the number of requests that are under way.
    unsigned getRequestCount(MtRequestTag tag);
    /// Counts up.
    void incRequestCount(MtRequestTag tag);
    /// Counts down. If the count is 0 then, wakes the threads that wait. A count below 0 wraps
    /// around. This is not detected.
    void decRequestCount(MtRequestTag tag);
    /// Blocks until the count is 0. This works once for each tag: when a thread has waited for a
    /// tag and the count has reached 0, each later wait for this tag returns at once, even if the
    /// count is not 0. So each batch must acquire a tag of its own.
    void waitRequestCountZero(MtRequestTag tag);

private:
    MtRequestTag::EntryList _entries ZV_GUARDED_BY(_lock);
    LkMutex _lock;
};

/// Base of requests: work for another thread, counted under a tag. The sender must call
/// `MtRequestMgr::incRequestCount`, and the thread that has done the work
/// `MtRequestMgr::decRequestCount`. See `MtTask` for an example.
class ZVRESMGT_EXPORT MtRequestBase
{
public:
    /// Constructs a request with an invalid tag.
    MtRequestBase();
    /// Constructs a request that is counted under `tag`.
    explicit MtRequestBase(MtRequestTag tag);
    MtRequestBase(MtRequestBase const &);
    MtRequestBase &operator=(MtRequestBase const &);
    virtual ~MtRequestBase() noexcept(false);

    MtRequestTag getTag() const { return _tag; }
    /// Sets the tag. Counts nothing.
    void setTag(MtRequestTag tag) { _tag = tag; }

private:
    MtRequestTag _tag;
};

} // namespace Zv
