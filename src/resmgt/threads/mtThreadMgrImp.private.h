// The portable part of the thread manager.
#pragma once

#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/threads/indexedList.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <map>
#include <utility>

namespace Zv {

/// The threads are also found by their numbers, under a lock that is a leaf: a protocol's callback, which runs under
/// its thread's lock, may look for a thread while the manager's own lock is held by one who waits for that thread's.
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

    /// The answer is not sure as long as there may be a thread that has not reported its number.
    MtThread *findByNumber(LkThreadId const &id, bool &isSure) const;
    MtThread *findNoLock(MtThread *thread) const ZV_REQUIRES(_lock);
    MtThreadGroup *findNoLock(MtThreadGroup *group) const ZV_REQUIRES(_lock);

    LkRecLock _lock;
    IndexedList<MtThread> _threads ZV_GUARDED_BY(_lock);
    IndexedList<MtThreadGroup> _groups ZV_GUARDED_BY(_lock);
    unsigned _nbProcessors ZV_GUARDED_BY(_lock);
    bool _isRealTime ZV_GUARDED_BY(_lock);

    /// A thread's number, and which registration it was: the first of two threads of one number comes first.
    using Number = std::pair<LkThreadId, std::uint64_t>;

    struct Report
    {
        Number number;
        bool isMade;
    };

    LkLock _numbersLock;
    std::uint64_t _nbRegistrations ZV_GUARDED_BY(_numbersLock);
    /// Of those that have made no report yet.
    std::size_t _nbSilent ZV_GUARDED_BY(_numbersLock);
    HashMap<MtThread *, Report> _numbers ZV_GUARDED_BY(_numbersLock);
    std::map<Number, MtThread *>
        _numbered ZV_GUARDED_BY(_numbersLock); // without those whose number is null

    ObjPtr<MtThread> _mainThread; // goes first: it takes itself out of all of the above
};

} // namespace Zv
