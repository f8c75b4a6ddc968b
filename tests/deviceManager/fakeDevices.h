// Fake devices that log their calls, and registry entries that are removed at the end of a test.
#pragma once

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "testing/journal.h"

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

/// Registers a kind of device, whose devices a function makes. The destructor removes it from the
/// registry.
class Registered
{
public:
    using Maker = std::function<RCShdPtr<DevMDPrtcl>()>;

    Registered(LiString const &name, Maker maker) : _name(name)
    {
        DevRegistry::getInstance().add(ObjPtr<DevRegistryEntry>(new Entry(name, std::move(maker))));
    }
    ~Registered() { DevRegistry::getInstance().remove(_name); }
    Registered(Registered const &) = delete;
    Registered &operator=(Registered const &) = delete;

private:
    class Entry : public DevRegistryEntry
    {
    public:
        Entry(LiString const &name, Maker maker)
            : DevRegistryEntry(name, "a device of the tests"), _maker(std::move(maker))
        {}
        RCShdPtr<DevMDPrtcl> createPrtcl() override { return _maker(); }

    private:
        Maker _maker;
    };

    LiString _name;
};

/// Access interface that logs "open NAME" and "close NAME".
class RecordingAccess : public DevMDAccessPrtcl
{
public:
    RecordingAccess(std::string name, Journal &journal) : _name(std::move(name)), _journal(journal)
    {}

    void performOpen() override { _journal.add("open " + _name); }
    void performClose() override { _journal.add("close " + _name); }

protected:
    std::string const _name;
    Journal &_journal;
};

/// A member whose destructor throws, also while another exception is being handled.
class FailingEnd
{
public:
    FailingEnd(std::string name, Journal &journal) : _name(std::move(name)), _journal(journal) {}
    FailingEnd(FailingEnd const &) = delete;
    FailingEnd &operator=(FailingEnd const &) = delete;
    ~FailingEnd() noexcept(false)
    {
        _journal.add("end " + _name);
        throw std::runtime_error("the end of " + _name);
    }

private:
    std::string const _name;
    Journal &_journal;
};

/// `Base` with a `FailingEnd`.
template <class Base>
class FailsToEnd : public Base
{
public:
    template <class... Others>
    FailsToEnd(std::string const &called, Journal &lines, Others... others)
        : Base(called, lines, others...), _end(called, lines)
    {}

private:
    FailingEnd _end;
};

/// Sequence interface that logs each step. A derived class finishes the step.
class RecordingSequence : public DevMDSyncSeqPrtcl
{
public:
    RecordingSequence(std::string name, Journal &journal)
        : _name(std::move(name)), _journal(journal)
    {}

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        step("start", aco);
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { step("sync to mark", aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { step("sync to time", aco); }
    void performRecover(ObjPtr<DevACO> aco) override { step("recover", aco); }
    void performStop(ObjPtr<DevACO> aco) override { step("stop", aco); }
    void performAbort(ObjPtr<DevACO> aco) override { step("abort", aco); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }

private:
    virtual void finish(ObjPtr<DevACO> aco) = 0;

    void step(char const *step, ObjPtr<DevACO> &aco)
    {
        _journal.add(step + (" " + _name));
        finish(aco);
    }

    std::string const _name;
    Journal &_journal;
};

/// Sequence interface that finishes each step at once, on the caller's thread.
class PromptSequence : public RecordingSequence
{
public:
    using RecordingSequence::RecordingSequence;

private:
    void finish(ObjPtr<DevACO> aco) override { aco->performExecute(); }
};

/// Request that calls a function.
class CallANO : public DevANO
{
public:
    explicit CallANO(std::function<void()> function) : _function(std::move(function)) {}
    void performExecute() override { _function(); }

private:
    std::function<void()> _function;
};

inline void produce(DevANOFifo &fifo, ObjPtr<DevANO> ano)
{
    DevANOQueueEntry entry(ano);
    fifo.produce(entry);
}

inline void produce(DevANOFifo &fifo, std::function<void()> function)
{
    produce(fifo, ObjPtr<DevANO>(new CallANO(std::move(function))));
}

} // namespace ZvTest
