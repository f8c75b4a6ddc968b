// Node of a sequence tree: one device, its sequence machine and the parts of both (extenders).
#pragma once

#include "resmgt/deviceManager/devMgrFailure.h"
#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"
#include "resmgt/deviceManager/stateMachine/devSMExecutionEng.h"
#include "resmgt/deviceManager/stateMachine/devSMTable.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/dtTime.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/sequenceContainers.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>

namespace Zv {

/// The events of the sequence machine, and their names. The values are the numbers in the machine's
/// table.
class ZVRESMGT_EXPORT DevSeqEv
{
public:
    /// The events. Their values are the numbers in the table.
    enum Event : std::int32_t
    {
        START,    ///< from the client to the root, and from a parent to its children
        READY,    ///< from the device, when it has started or recovered
        SREADY,   ///< from a child to its parent, when its whole subtree is ready
        PROCEED,  ///< from a node to itself, when its whole subtree is ready
        LOCK,     ///< from the device, when it has locked
        MLOCK,    ///< from a parent to its children, which then lock to its mark
        RECOVER,  ///< from the device, when it has lost its lock, and from a parent to its children
        STOP,     ///< from the client to the root, and from a parent to its children
        STOPPED,  ///< from the device, when it has stopped
        SSTOPPED, ///< from a child to its parent, when its whole subtree has stopped
        ABORT,    ///< from the device, at any time between its start and its end
        ABORTED   ///< from the device, when it has aborted
    };

    /// The names of the events.
    struct Names
    {
        char const *start;    ///< name of `START`
        char const *ready;    ///< name of `READY`
        char const *sready;   ///< name of `SREADY`
        char const *proceed;  ///< name of `PROCEED`
        char const *lock;     ///< name of `LOCK`
        char const *mlock;    ///< name of `MLOCK`
        char const *recover;  ///< name of `RECOVER`
        char const *stop;     ///< name of `STOP`
        char const *stopped;  ///< name of `STOPPED`
        char const *sstopped; ///< name of `SSTOPPED`
        char const *abort;    ///< name of `ABORT`
        char const *aborted;  ///< name of `ABORTED`
    };
    /// Returns the names. They stay valid until the process ends.
    static Names const &getNames();

    DevSeqEv() = delete;
};

/// A queue of events of a sequence machine. The events stay in the queue until it is released.
///
/// **Threads**: one thread at a time, under the tree's lock.
class ZVRESMGT_EXPORT DevSeqEvPend : public RCBase<LkCounter<long>>
{
public:
    /// Appends an event.
    void addEvent(std::int32_t event);
    /// Releases the events in the queue. Does nothing if the queue is empty.
    void release();
    bool isReleased() const { return _released; }
    /// Removes all events and returns them, the oldest first. The queue is not released afterwards.
    Vector<std::int32_t> take();

protected:
    ~DevSeqEvPend() override;

private:
    Vector<std::int32_t> _events;
    bool _released = false;
};

/// The part of a node that the transitions of its machine use: the number of its children, the
/// events for its neighbours, its latency and mark, and its end.
///
/// **Threads**: any thread may call `waitDone`, `hasEnded` and `releaseWaiters`. The other
/// operations need the tree's lock.
class ZVRESMGT_EXPORT DevSeqTreeNodeUtil : public RCBase<LkCounter<long>>
{
public:
    explicit DevSeqTreeNodeUtil(LiString const &name);

    LiString getName() const { return _name; }

    /// The number of children that have reported `SREADY` since the node waits for them.
    std::int32_t getSreadyCount() const { return _sreadyCount; }
    void setSreadyCount(std::int32_t count) { _sreadyCount = count; }
    /// The number of children that have reported `SSTOPPED` since the node waits for them.
    std::int32_t getSstoppedCount() const { return _sstoppedCount; }
    void setSstoppedCount(std::int32_t count) { _sstoppedCount = count; }

    /// The number of children of the node.
    std::int32_t getNbChildren() const { return _nbChildren; }
    void setNbChildren(std::int32_t nbChildren) { _nbChildren = nbChildren; }
    /// True if the node has a parent.
    bool hasParent() const { return _hasParent; }
    void setHasParent(bool hasParent) { _hasParent = hasParent; }

    /// Queue an event and release it at once. The tree delivers it after the machine's step.
    void sendToSelf(std::int32_t event);
    void sendToParent(std::int32_t event);
    void sendToChildren(std::int32_t event);
    RCShdPtr<DevSeqEvPend> const &getSelfPend() const { return _selfPend; }
    RCShdPtr<DevSeqEvPend> const &getParentPend() const { return _parentPend; }
    RCShdPtr<DevSeqEvPend> const &getChildrenPend() const { return _childrenPend; }

    /// The latency of this device.
    DtTime const &getLatency() const { return _latency; }
    void setLatency(DtTime const &latency) { _latency = latency; }
    /// The largest latency of the subtree.
    DtTime const &getMaxLatency() const { return _maxLatency; }
    void setMaxLatency(DtTime const &latency) { _maxLatency = latency; }
    /// The mark of this device. Valid after it has locked.
    DtTimeMark const &getMark() const { return _mark; }
    void setMark(DtTimeMark const &mark) { _mark = mark; }
    /// The mark that this device locks to.
    DtTimeMark const &getParentMark() const { return _parentMark; }
    void setParentMark(DtTimeMark const &mark) { _parentMark = mark; }

    /// Records that the device has stopped or aborted, and wakes the threads in `waitDone`.
    void postDone();
    /// Blocks until `postDone` or `releaseWaiters` has been called. Any number of threads may wait
    /// at the same time, any number of times.
    void waitDone();
    /// Returns true if `postDone` has been called.
    bool hasEnded() const;
    /// Wakes all threads in `waitDone`. From now on `waitDone` does not block.
    void releaseWaiters() { _done.post(); }

protected:
    ~DevSeqTreeNodeUtil() override;

private:
    LiString _name;
    std::int32_t _sreadyCount = 0;
    std::int32_t _sstoppedCount = 0;
    std::int32_t _nbChildren = 0;
    bool _hasParent = false;
    RCShdPtr<DevSeqEvPend> _selfPend;
    RCShdPtr<DevSeqEvPend> _parentPend;
    RCShdPtr<DevSeqEvPend> _childrenPend;
    DtTime _latency;
    DtTime _maxLatency;
    DtTimeMark _mark;
    DtTimeMark _parentMark;
    ZvPlatform::Shared<bool> _hasEnded{false}; // read without the tree's lock
    LkUnnamedSema _done;
};

/// Creates the seventeen transitions of the sequence machine for one node. They call the device,
/// count the node's children, and queue events for the node and its neighbours. The tree delivers
/// these events.
class ZVRESMGT_EXPORT DevSeqTransFactory : public DevSMTransitionFactory
{
public:
    /// `evPend` is the queue that the `DevSeqSM` of the node takes its events from.
    DevSeqTransFactory(RCShdPtr<DevSeqEvPend> evPend, RCShdPtr<DevSeqTreeNodeUtil> nodeUtil,
                       RCShdPtr<DevSeqPrtclUtil> prtclUtil);
    ~DevSeqTransFactory() override;

    RCShdPtr<DevSMTransition> create(LiString const &name) override;

private:
    class SeqTransBase;
    struct SeqTransName;

    RCShdPtr<SeqTransBase> _node;
    std::size_t _next = 0; // the place of the transition that `create` looks at first
};

/// The table of the sequence machine. A device goes from `init` through `start`, `ready` and `sync`
/// to `lock`, and through `stop` or `abort` to `final`, together with its parent and its children.
/// The table is made at its first use. All machines share it:
///
///     init     start -> start            sync     lock -> lock
///     start    ready -> ready, wsr       lock     stop -> stop, wss
///     wsr      sready -> wsr, ready               recover -> recover
///     ready    proceed -> sync, wml               sready -> lock
///     wml      mlock -> sync             recover  ready -> ready, wsr
///                                                 mlock -> lock
///     wss      sstopped -> wss, stop     stop     stopped -> final
///
/// From every state between `init` and `final`, `abort` leads to `abort`. There every event but
/// `start` is ignored, and `aborted` leads to `final`. A child's `sready` that comes before the
/// node's own `ready` is kept until then. A `stop` that comes before `lock` is kept until the lock.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DevSeqSMTable
{
public:
    /// Returns the only instance. Throws what its construction throws.
    static DevSeqSMTable &getInstance();

    DevSeqSMTable(DevSeqSMTable const &) = delete;
    DevSeqSMTable &operator=(DevSeqSMTable const &) = delete;
    ~DevSeqSMTable() noexcept(false);

    RCShdPtr<DevSMTable> getTable() const { return _table; }
    /// Returns true if the event is legal in the state. In `_ill` and `_exc` no event is.
    bool isLegal(std::int32_t state, std::int32_t event) const;

private:
    friend struct LkSingletonCreator<DevSeqSMTable>;

    DevSeqSMTable();

    RCShdPtr<DevSMTable> _table;
    std::int32_t _illegal = -1; // the number of the transition
};
ZV_DECLARE_SINGLETON(DevSeqSMTable);

/// Makes a machine refuse illegal events, and is told of its states. Called by the thread that
/// executes the machine's events.
class ZVRESMGT_EXPORT DevSeqSMGuard
{
public:
    /// Called when the machine has reached another state.
    virtual void stateChanged(std::int32_t state) = 0;
    /// Called instead of executing an event that is illegal in the present state. The machine does
    /// not change.
    virtual void refused(std::int32_t event) = 0;

protected:
    ~DevSeqSMGuard() = default;
};

/// The sequence machine of one node. It runs from `init` to `final`, to `_exc` if a call of the
/// device has thrown an `ExBase`, or to `_ill` after an illegal event. No event leads out of these
/// three states. An exception of another class breaks the machine.
///
/// It writes one line to the trace, with its label, the event, the state and the reason, if it
/// reaches `_exc` or `_ill`, if it breaks, and if it then gets another event.
///
/// **Threads**: one thread at a time, under the tree's lock.
class ZVRESMGT_EXPORT DevSeqSM
{
public:
    /// Observes the steps of a machine. It must not execute an event of the machine.
    class Listener
    {
    public:
        /// Called after each step that has led to another state. `DevSeqSM::getStateName` returns
        /// it.
        virtual void stateChanged() = 0;
        /// Called once when the machine has reached `_exc` or `_ill`, after `stateChanged`, or has
        /// broken. `DevSeqSM::getFailure` returns the reason.
        virtual void machineFailed() = 0;

    protected:
        ~Listener() = default;
    };

    /// `evPend` is the queue in which the factory's transitions keep events. `label` is the
    /// machine's name in traces.
    DevSeqSM(ObjPtr<DevSMTransitionFactory> factory, RCShdPtr<DevSeqEvPend> evPend,
             LiString const &label);
    DevSeqSM(DevSeqSM const &) = delete;
    DevSeqSM &operator=(DevSeqSM const &) = delete;
    ~DevSeqSM() noexcept(false);

    /// Executes the event, and then the kept events as long as a transition releases them. Throws
    /// what `DevSMExecutionEng::execute` throws. Events that were released and not executed are
    /// lost then.
    void execute(std::int32_t event, Listener *listener = nullptr);
    LiString getStateName() const;
    LiString const &getLabel() const { return _label; }

    /// Returns the reason why the machine is in `_exc` or `_ill` or is broken, without the device's
    /// name. Empty if it has not failed.
    std::optional<DevMgrFailure> getFailure() const;
    /// Returns the last event for which `execute` has thrown, and the state in which the machine
    /// got it, without the device's name and the exception. Must not be called before `execute` has
    /// thrown.
    DevMgrFailure getLastThrown() const;

    /// Sets the guard. Null means none. The guard must outlive the machine. From now on the machine
    /// refuses illegal events. It does not trace its failures, because the owner of the guard
    /// reports them.
    void setGuard(DevSeqSMGuard *guard) { _guard = guard; }

private:
    /// An event, and the state in which the machine got it.
    struct Step
    {
        std::int32_t state;
        std::int32_t event;
    };
    struct Failure
    {
        Step step;
        std::exception_ptr exception;
    };

    void execute(Step const &step, Listener *listener);
    void stepThrew(Step const &step, Listener *listener);
    void fail(Step const &step, std::exception_ptr const &exception, char const *how);
    void trace(Step const &step, std::exception_ptr const &exception,
               char const *how) const noexcept;
    DevMgrFailure describe(Step const &step) const;

    RCShdPtr<DevSMTable> _table;
    ObjPtr<DevSMExecutionEng> _engine;
    RCShdPtr<DevSeqEvPend> _evPend;
    LiString _label;
    std::optional<Failure> _failure;
    Step _lastThrown = {};
    DevSeqSMGuard *_guard = nullptr;
};

/// A node of a `DevSeqTree`: a device with its sequence machine. A node runs once. To run the
/// device again, make a new node.
///
/// **Threads**: one thread at a time before the node joins a tree. Then the tree uses it under its
/// lock.
class ZVRESMGT_EXPORT DevSeqTreeNode : public RCBase<LkCounter<long>>
{
public:
    /// Creates a node for a device.
    [[nodiscard]] static RCShdPtr<DevSeqTreeNode> create(LiString const &name,
                                                         RCShdPtr<DevSeqPrtclUtil> prtclUtil);
    /// Creates a node without a device. It gets no reports, so the caller must deliver the events
    /// of the device by `DevSeqTree::processEvent` with the node's name.
    [[nodiscard]] static RCShdPtr<DevSeqTreeNode> createNoop(LiString const &name);

    DevSeqTreeNode(DevSeqTreeNode const &) = delete;
    DevSeqTreeNode &operator=(DevSeqTreeNode const &) = delete;

    LiString const &getName() const { return _name; }
    /// Calls `DevSeqSM::setGuard` of the node's machine. Must be called before the first delivery.
    void setGuard(DevSeqSMGuard *guard) { _sm->setGuard(guard); }

protected:
    /// Destroys the subtree, without recursion.
    ~DevSeqTreeNode() override;

private:
    friend class DevSeqTree;

    DevSeqTreeNode(LiString const &name, ObjPtr<DevSeqSM> sm, RCShdPtr<DevSeqTreeNodeUtil> util);

    void addChild(RCShdPtr<DevSeqTreeNode> const &child);
    void accept(std::int32_t event, DevSeqSM::Listener &listener);
    std::optional<DevMgrFailure> getFailure() const;
    /// Returns the event for which `accept` has thrown last, without the exception.
    DevMgrFailure getLastThrown() const;
    /// Throws `RCEx::ExNullPtr` if there is none.
    DevSeqTreeNode &getParent() const;
    void leave(DevSeqTreeNode const &parent);

    LiString _name;
    ObjPtr<DevSeqSM> _sm;
    RCShdPtr<DevSeqTreeNodeUtil> _util;
    DevSeqTreeNode *_parent = nullptr; // which holds this node
    List<RCShdPtr<DevSeqTreeNode>> _children;
};

} // namespace Zv
