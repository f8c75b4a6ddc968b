// A node of the priority graph.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/threads/priorityTypes.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

class PriorityMgr;
class PriorityRelation;

/// A priority: one node in the graph of a `PriorityMgr`. A fixed node has a number of its own; a free node gets the
/// lowest number that its relations (`PriorityRelation`) allow, or the manager's minimum where it has none.
///
///     Priority floor("floor", mgr, 3);
///     Priority worker("worker", mgr, Priority::NOT_SET);
///     PriorityRelation above("floor<worker", floor, PriorityRelation::LESS, worker);
///     worker.getPriority(); // 4
///
/// A node belongs to its manager from its constructor to its destructor; both solve the graph, so both can throw what
/// a solving throws (see `PriorityMgr`). The relations of a node are destroyed before it.
///
/// All operations may be called by any thread. They block as long as another thread changes the graph.
class ZVRESMGT_EXPORT Priority : public PriorityTypes
{
public:
    /// Given instead of a number, it makes a node free.
    static constexpr int NOT_SET = -1;

    /// A node that is fixed at `priority`, or free where that is `NOT_SET`. `mgr` outlives the node.
    ///
    /// A derived class must use the protected constructor, also if it does not override `updatePriority`: other threads
    /// would look at the type of an object that is still being built, or half destroyed.
    Priority(LiString const &name, PriorityMgr &mgr, int priority);
    /// A further node of the same manager, with the name, the value and the fixed flag of the other and without
    /// relations.
    Priority(Priority const &);
    Priority &operator=(Priority const &) = delete;
    /// While an exception is passing, what the solving throws is dropped. If a relation of the node still exists, it
    /// is no longer in force, and an assertion fails ("hasNoRelations").
    virtual ~Priority() noexcept(false);

    /// Tells the node its value, once for each solving, in the order in which the nodes joined. Called under the
    /// manager's lock on whichever thread changed the graph; may change the graph itself. Does nothing here. A class
    /// that overrides it uses the protected constructor.
    ///
    /// It must not wait for another thread, nor call what does: `MtThread::stop` and `join`, `SeSyncEngine`,
    /// `MtAlarmManager::deregisterAlarm`. The other thread may be waiting for the manager's lock.
    virtual void updatePriority(int priority);

    /// The value in the solved graph.
    int getPriority() const;
    /// The value as it stands, without solving: stale while a change is on its way.
    int getPriorityNoCheck() const;
    /// Moves a fixed node and solves the graph; the value of a free node is overwritten by that. Throws what the
    /// solving throws; the value then stays.
    void setPriority(int priority);
    bool isPriorityFixed() const { return _isFixed; }
    /// Whether the node is free, and on the right of no order relation.
    bool isIndependantButNotSet() const;

    LiString getName() const;
    void setName(LiString const &name);
    LkRecLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }
    PriorityMgr &getMgr() const { return *_mgr; }

    /// One line with name, value, fixed flag and bounds; the node's relations below it, one a line.
    void dump(std::ostream &, bool withRelations) const;

protected:
    /// What a node hears of solvings.
    enum Telling
    {
        NEVER,           ///< Nothing: it carries a value only.
        AT_EACH_SOLVING, ///< Its value after each solving, changed or not.
        WHEN_CHANGED     ///< Its value when it is another than the one that it was told last.
    };

    /// For derived classes: a node outside the graph. The class that overrides `updatePriority` calls `join` at the
    /// end of its constructor and `leave` first in its destructor, so that no thread meets half an object:
    ///
    ///     Meter::Meter(PriorityMgr &mgr) : Priority("meter", mgr, NOT_SET, AT_EACH_SOLVING) { join(); }
    ///     Meter::~Meter() noexcept(false) { leave(); }
    Priority(LiString const &name, PriorityMgr &mgr, int priority, Telling telling);
    /// Adds the node to its manager; throws what the solving throws, and then it has not joined.
    void join();
    /// Removes the node from its manager; nothing where it is outside. Throws as the destructor does.
    void leave();
    /// Changes what the node hears of solvings, from the next solving on. For a class whose base class has joined
    /// already, such as a class derived from `MtThreadPool`: it calls this with `AT_EACH_SOLVING` or `WHEN_CHANGED` at
    /// the end of its constructor, and with `NEVER` first in its destructor.
    void setTelling(Telling telling);

private:
    friend class PriorityClients;
    friend class PriorityMgr;
    friend class PriorityRelation;
    friend class PriorityRingSolver;
    friend class PrioritySolver;

    using Relations = List<PriorityRelation *>;

    // The relation's entry in the node's list comes from `entry` and goes back there.
    void addRelation(PriorityRelation &, Side, Relations &entry);
    void removeRelation(PriorityRelation &, Side, Relations &entry);
    Relations &getRelationsOf(PriorityRelation const &, Side) ZV_REQUIRES(_lock);
    // The lists change under the manager's lock and the node's, and are read under either. The solving reads them under
    // the manager's alone: it walks relations both ways, and would take the locks of nodes in both orders.
    Relations const &getOrders(Side) const;
    Relations const &getEquals() const;
    Priority const *findDependantRec(Priority const &target, std::uint64_t search) const;
    void reset(int minimum, int maximum);
    void set(Side);
    void updatePriorityFromTransient();
    bool checkTransient() const;
    [[noreturn]] void throwTransientInvalid() const;
    int getTransient(Side) const;
    void setTransient(Side, int bound);
    void pushTransient(Side, int bound);
    void dumpLine(std::ostream &) const;
    static void dumpRelations(std::ostream &, char const *title, Relations const &);

    LiString _name ZV_GUARDED_BY(_lock);
    LkRecLock _lock;
    PriorityMgr *_mgr;
    bool _isFixed;
    int _priority ZV_GUARDED_BY(_lock);
    int _lhsTransient ZV_GUARDED_BY(_lock) = NOT_SET;
    int _rhsTransient ZV_GUARDED_BY(_lock) = NOT_SET;
    Relations _dependants ZV_GUARDED_BY(_lock);
    Relations _dependOns ZV_GUARDED_BY(_lock);
    Relations _equals ZV_GUARDED_BY(_lock);
    bool _isVisiting = false; // under the manager's lock, as all that follows

    // What the manager and its helpers remember of the node.
    struct Membership
    {
        std::uint64_t _order = 0; // position among all that ever joined; 0 while outside
        List<Priority *>::iterator _position{};
        List<Priority *>::iterator _independantPosition{};
        std::uint64_t _search = 0; // the last search that passed here
        std::size_t _index = 0;    // what that search remembers of the node
        bool _isBounded = false;   // an upper bound reached the node from a fixed one
        bool _isAffected = false;
        bool _isQueued = false;
        bool _isTouched = false;
        Telling _telling;
        bool _isPresumedPlain;
        bool _wasTold = false;
        int _told = NOT_SET;
    };
    mutable Membership _membership;
};

} // namespace Zv
