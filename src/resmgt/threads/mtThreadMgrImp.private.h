// Portable part of the thread manager: the lists of threads and groups, and the search by number.
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/threads/indexedList.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <functional>
#include <map>
#include <utility>

namespace Zv {

/// Two locks. `_lock` guards the lists and may be held while a thread's lock is acquired, as `dump`
/// does. A callback of a protocol runs under its thread's lock and may search for a thread. So the
/// search by number has a lock of its own, `_numbersLock`, under which no other lock is acquired.
class MtThreadMgrImp : public MtThreadMgr
{
public:
    void addGroup(MtThreadGroup *group) override;
    void addThread(MtThread *thread) override;
    void removeGroup(MtThreadGroup *group) override;
    void removeThread(MtThread *thread) override;
    MtThread *findThread(LkThreadId const &id) override;
    unsigned getNbThreads() const override;
    void setNbProcessors(unsigned nbProcessors) override;
    unsigned getNbProcessors() const override;
    bool isRealTime() const override;
    void dump(std::ostream &) const override;
    /// Calls a function for each registered thread, under the manager's lock.
    void forEachThread(std::function<void(MtThread const &)> const &visit) const;

protected:
    explicit MtThreadMgrImp(MtThreadFactory &factory);
    ~MtThreadMgrImp() noexcept(false) override;

    void updateGroups(unsigned nbProcessors) override;

public:
    void setRealTime(bool wanted) override;

protected:
    void enableRealTime() override;
    void disableRealTime() override;

public:
    void threadIdChanged(MtThread *thread, LkThreadId const &id) override;

private:
    static constexpr unsigned NO_PROCESSORS = ~0u;

    /// Returns the thread with this number, or null. Sets `isSure` to false if a thread that has
    /// not reported its number may have it.
    MtThread *findByNumber(LkThreadId const &id, bool &isSure) const;
    MtThread *findNoLock(MtThread *thread) const ZV_REQUIRES(_lock);
    MtThreadGroup *findNoLock(MtThreadGroup *group) const ZV_REQUIRES(_lock);

    LkRecLock _lock;
    IndexedList<MtThread> _threads ZV_GUARDED_BY(_lock);
    IndexedList<MtThreadGroup> _groups ZV_GUARDED_BY(_lock);
    unsigned _nbProcessors ZV_GUARDED_BY(_lock);
    bool _isRealTime ZV_GUARDED_BY(_lock);

    /// The number of a thread and the count of its registration, which orders threads of the same
    /// number.
    using Number = std::pair<LkThreadId, std::uint64_t>;

    struct Report
    {
        Number number;
        bool isMade;
    };

    LkLock _numbersLock;
    std::uint64_t _nbRegistrations ZV_GUARDED_BY(_numbersLock);
    /// Number of threads that have not reported their number yet.
    std::size_t _nbSilent ZV_GUARDED_BY(_numbersLock);
    HashMap<MtThread *, Report> _numbers ZV_GUARDED_BY(_numbersLock);
    std::map<Number, MtThread *> _numbered ZV_GUARDED_BY(_numbersLock); // without null numbers

    ObjPtr<MtThread>
        _mainThread; // destroyed first, because it removes itself from all of the above
};

} // namespace Zv
