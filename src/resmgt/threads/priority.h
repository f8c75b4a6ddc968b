// Nodes of a priority graph, and the relations between them (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkRecLock.h"
#include "zvbase/sequenceContainers.h"
#include "zvbase/threadAnnotations.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

class Priority;
class PriorityMgr;

/// The two sides of a relation between priorities.
class ZVRESMGT_EXPORT PriorityTypes
{
public:
    /// In the solver, the left-hand transient of a node is its lower bound, and the right-hand one
    /// its upper bound.
    enum Side : int
    {
        LEFT,
        RIGHT
    };

    /// Returns the other side.
    static Side getOpposite(Side side) { return side == LEFT ? RIGHT : LEFT; }
};

/// States that the left-hand priority is equal to, less than, or not greater than the right-hand
/// one. It is in force from its constructor to its destructor.
///
///     PriorityMgr mgr("levels", 0, 6);
///     Priority floor("floor", mgr, 3);
///     Priority worker("worker", mgr, Priority::NOT_SET);
///     PriorityRelation above("floor<worker", floor, PriorityRelation::LESS, worker);
///     worker.getPriority(); // 4
///
/// **Threads**: thread-safe, except the destructor.
///
/// **Blocks**: while another thread changes the graph.
///
/// **Owns**: nothing. Both nodes must belong to one manager and outlive the relation.
class ZVRESMGT_EXPORT PriorityRelation : public PriorityTypes
{
public:
    /// How the left-hand priority compares with the right-hand one.
    enum Relation : int
    {
        EQUAL,     ///< ==
        LESS,      ///< <
        LESS_EQUAL ///< <=
    };

    /// Adds the relation and solves the graph.
    ///
    /// Fails the assertion "isValid()" if the nodes belong to different managers, if order
    /// relations already put the right-hand node below the left-hand node, or if a node is related
    /// to itself by `<` or `<=`. Throws what the solving throws, see `PriorityMgr`. The graph is
    /// then solved again without the relation.
    ///
    /// An `==` between two nodes of the same name passes bounds from left to right only.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs);
    PriorityRelation(PriorityRelation const &) = delete;
    PriorityRelation &operator=(PriorityRelation const &) = delete;
    /// Removes the relation and solves the graph. Throws what the solving throws, except during
    /// stack unwinding.
    ~PriorityRelation() noexcept(false);

    LiString const &getName() const { return _name; }
    Priority &getLhs() const { return *_lhs; }
    Priority &getRhs() const { return *_rhs; }
    /// Returns the node on that side.
    Priority &get(Side side) const { return side == LEFT ? *_lhs : *_rhs; }
    /// Returns whether the nodes are related in that way.
    bool isRelation(Relation relation) const { return _relation == relation; }
    /// Returns whether `priority` is one of the two nodes.
    bool uses(Priority const &priority) const { return _lhs == &priority || _rhs == &priority; }

    /// Returns the highest left-hand value that satisfies the relation with this right-hand value.
    int computeLhsPriority(int rhsPriority) const;
    /// Returns the lowest right-hand value that satisfies the relation with this left-hand value.
    int computeRhsPriority(int lhsPriority) const;
    /// Returns the bound for the node on `side`, from the value of the node on the opposite side.
    int computePriority(Side side, int opposite) const;
    /// Returns whether the current values satisfy the relation.
    [[nodiscard]] bool check() const;

    /// Returns "==", "< " or "<=". Any other value aborts the program.
    static char const *relationToString(Relation relation);
    /// Writes one line, without its end.
    void dump(std::ostream &) const;

private:
    friend class Priority;
    friend class PriorityMgr;
    friend class PrioritySolver;
    friend class RtPrioritiesWinNT;

    /// Adds a relation and removes `former`, which may be null, in one solving. `former` must still
    /// be destroyed. If this throws, `former` stays in force.
    PriorityRelation(LiString const &name, Priority &lhs, Relation relation, Priority &rhs,
                     PriorityRelation *former);

    bool isValid() const;
    [[noreturn]] void throwRelationInvalid() const;

    LiString _name;
    Relation _relation;
    Priority *_lhs;
    Priority *_rhs;
    PriorityMgr *_mgr;

    // The places of the relation in the lists. The manager's lock guards them.
    struct Membership
    {
        List<PriorityRelation *>::iterator _position{};
        List<PriorityRelation *>::iterator _sidePositions[2]{};
        bool _isListed = false;   // in the manager's list
        bool _isAttached[2] = {}; // in its nodes' lists, by side
        bool _isStray = false;    // attached, but not listed, or a node of it has not joined
    };
    Membership _membership;
};

/// A priority: one node in the graph of a `PriorityMgr`. A fixed node has a number of its own. A
/// free node gets the lowest number that its relations (`PriorityRelation`) allow, or the manager's
/// minimum if it has none.
///
///     PriorityMgr mgr("levels", 0, 6);
///     Priority floor("floor", mgr, 3);
///     Priority worker("worker", mgr, Priority::NOT_SET);
///     PriorityRelation above("floor<worker", floor, PriorityRelation::LESS, worker);
///     worker.getPriority(); // 4
///
/// A class that overrides `updatePriority` joins the graph at the end of its constructor and leaves
/// it at the beginning of its destructor, so that no thread calls an incomplete object:
///
///     class Meter : public Priority
///     {
///     public:
///         explicit Meter(PriorityMgr &mgr) : Priority("meter", mgr, NOT_SET, AT_EACH_SOLVING)
///         {
///             join();
///         }
///         ~Meter() noexcept(false) override { leave(); }
///         void updatePriority(int priority) override { _shown = priority; }
///
///     private:
///         int _shown = 0;
///     };
///
/// **Threads**: thread-safe, except the constructors and the destructor.
///
/// **Blocks**: while another thread changes the graph.
///
/// **Throws**: an operation that solves the graph throws what the solving throws, see
/// `PriorityMgr`. The constructor and the destructor solve it.
///
/// **Owns**: nothing. The manager must outlive the node, and the node its relations.
class ZVRESMGT_EXPORT Priority : public PriorityTypes
{
public:
    /// The number that makes a node free.
    static constexpr int NOT_SET = -1;

    /// Which relations `dump` writes.
    enum class DumpedRelations
    {
        NONE,
        OF_NODE
    };

    /// Adds a node that is fixed at `priority`, or free if that is `NOT_SET`.
    ///
    /// A derived class must use the protected constructor, even if it does not override
    /// `updatePriority`. Otherwise other threads may examine the type of an object that is still
    /// being constructed or is being destroyed.
    Priority(LiString const &name, PriorityMgr &mgr, int priority);
    /// Adds a further node to the same manager, with the name, the value and the fixed flag of the
    /// other node and without relations.
    Priority(Priority const &);
    Priority &operator=(Priority const &) = delete;
    /// Removes the node. During stack unwinding, what the solving throws is dropped. If a relation
    /// of the node still exists, the relation is no longer in force, and the assertion
    /// "hasNoRelations" fails.
    virtual ~Priority() noexcept(false);

    /// Called after a solving with the value of the node, under the manager's lock, on the thread
    /// that changed the graph. The nodes are called in the order in which they joined. May change
    /// the graph. Does nothing in this class.
    ///
    /// It must not wait for another thread, because that thread may wait for the manager's lock. So
    /// it must not call `MtThread::stop` or `join`, `SeSyncEngine`, or
    /// `MtAlarmManager::deregisterAlarm`.
    virtual void updatePriority(int priority);

    /// Solves the graph if it has changed, and returns the value.
    int getPriority() const;
    /// Returns the value without solving. It may be out of date while another thread changes the
    /// graph.
    int getPriorityNoCheck() const;
    /// Sets the value of a fixed node and solves the graph. If the solving throws, the value stays.
    /// On a free node, the solving overwrites the value.
    void setPriority(int priority);
    bool isPriorityFixed() const { return _isFixed; }
    /// Returns whether the node is free and no order relation has it on its right-hand side.
    bool isIndependantButNotSet() const;

    LiString getName() const;
    /// Renames the node. Does not solve the graph.
    void setName(LiString const &name);
    LkRecLock const &getLock() const ZV_RETURN_CAPABILITY(_lock) { return _lock; }
    PriorityMgr &getMgr() const { return *_mgr; }

    /// Writes one line with name, value, fixed flag and bounds. If `withRelations` is true, the
    /// relations of the node follow, one in a line.
    void dump(std::ostream &, bool withRelations) const;
    /// Like the function above, with a name for the second argument.
    void dump(std::ostream &os, DumpedRelations relations) const
    {
        dump(os, relations == DumpedRelations::OF_NODE);
    }

protected:
    /// When `updatePriority` is called.
    enum Telling
    {
        NEVER,           ///< Never: the node only carries a value.
        AT_EACH_SOLVING, ///< After each solving, even if the value has not changed.
        WHEN_CHANGED     ///< If the value differs from that of the last call.
    };

    /// Constructs a node outside the graph. A class that overrides `updatePriority` calls `join` at
    /// the end of its constructor and `leave` at the beginning of its destructor, see the example
    /// above.
    Priority(LiString const &name, PriorityMgr &mgr, int priority, Telling telling);
    /// Adds the node to its manager. Throws what the solving throws. The node has not joined then.
    void join();
    /// Removes the node from its manager, if it has joined. Throws what the solving throws, except
    /// during stack unwinding.
    void leave();
    /// Changes when `updatePriority` is called, from the next solving on. For a class whose base
    /// class has joined already, such as a class derived from `MtThreadPool`. It calls this with
    /// `AT_EACH_SOLVING` or `WHEN_CHANGED` at the end of its constructor, and with `NEVER` at the
    /// beginning of its destructor.
    void setTelling(Telling telling);

private:
    friend class PriorityClients;
    friend class PriorityMgr;
    friend class PriorityRelation;
    friend class PriorityRingSolver;
    friend class PrioritySolver;

    using Relations = List<PriorityRelation *>;

    // The entry of the relation moves from `entry` to the node's list, and back.
    void addRelation(PriorityRelation &, Side, Relations &entry);
    void removeRelation(PriorityRelation &, Side, Relations &entry);
    Relations &getRelationsOf(PriorityRelation const &, Side) ZV_REQUIRES(_lock);
    // The lists change under the manager's lock and the node's, and may be read under either. The
    // solving reads them under the manager's lock alone. It follows relations in both directions,
    // so it would take locks of nodes in both orders.
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
    bool _isVisiting = false; // the manager's lock guards this and all that follows

    // State of the node in the manager, its solvers and its clients.
    struct Membership
    {
        std::uint64_t _order = 0; // number of the joining, or 0 if the node is not in the graph
        List<Priority *>::iterator _position{};
        List<Priority *>::iterator _independantPosition{};
        std::uint64_t _search = 0; // the last search that found the node
        std::size_t _index = 0;    // the place of the node in that search
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
