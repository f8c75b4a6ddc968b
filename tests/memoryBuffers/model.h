// Model of the state machine of buffers: a second table and an interpreter, with which the tests
// compare the real one.
//
// A configuration is a value. Its threads stop at the same points as the real ones, in a call of
// the protocol and in a wait. If several threads are woken, any of them may be first. `settle`
// gives all results.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace ZvTest::Model {

constexpr int EVENTS = 12;
constexpr char const *eventNames[EVENTS] = {
    "rdlock", "wrlock", "wrdup", "prefetch", "asyncSync",        "sync",
    "unlock", "unload", "free",  "destroy",  "asyncOpSucceeded", "asyncOpFailed"};

/// X refused, . ignored, W wait, D postpone or wait, Q postpone, +1 and -1 the lock count, a name
/// is the next state.
struct Row
{
    char const *state;
    char const *cells[EVENTS];
};

// clang-format off
constexpr Row table[] = {
    {"Freed", {"BeingRdLoaded", "BeingWrLoaded", "X", "BeingAsyncLoaded", ".", ".", "X", ".", ".", "Destroyed", "X", "X"}},
    {"Unloaded", {"BeingRdReloaded", "BeingWrReloaded", "X", "BeingAsyncReloaded", ".", ".", "X", ".", "Freed", "Destroyed", "X", "X"}},
    {"Loaded", {"+1 RdLocked", "+1 WrLocked", "X", "touch", "BeingAsyncSynched", "BeingSynched", "X", "BeingUnloaded", "BeingFreed", "BeingDestroyed", "X", "X"}},
    {"Synched", {"+1 RdLocked", "+1 WrLocked", "X", "touch", ".", ".", "X", "BeingUnloaded", "BeingFreed", "dealloc Destroyed", "X", "X"}},
    {"RdLocked", {"+1", "W", "X", ".", "Q", "W", "-1 BeingUnlocked", ".", "RdLockedFreed", "X", "X", "X"}},
    {"WrLocked", {"W", "W", "+1", ".", "Q", "W", "-1 BeingUnlocked", ".", "WrLockedFreed", "X", "X", "X"}},
    {"RdLockedFreed", {"+1", "W", "X", ".", ".", ".", "-1 BeingFreed", ".", ".", "X", "X", "X"}},
    {"WrLockedFreed", {"W", "W", "+1", ".", ".", ".", "-1 BeingFreed", ".", ".", "X", "X", "X"}},
    {"BeingRdLoaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingWrLoaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingAsyncLoaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "Q", "Q"}},
    {"BeingRdReloaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingWrReloaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingAsyncReloaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "Q", "Q"}},
    {"BeingSynched", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingAsyncSynched", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "Q", "Q"}},
    {"BeingUnlocked", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"BeingUnloaded", {"W", "W", "X", "D", "D", "W", "X", ".", "D", "D", "X", "X"}},
    {"BeingFreed", {"W", "W", "X", "D", ".", ".", "X", ".", ".", "D", "X", "X"}},
    {"BeingDestroyed", {"X", "X", "X", "X", "X", "X", "X", ".", "X", "X", "X", "X"}},
    {"WaitAsyncLoaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "D", "AsyncLoadSucceeded", "dealloc AsyncLoadFailed"}},
    {"WaitAsyncReloaded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "D", "AsyncReloadSucceeded", "dealloc AsyncReloadFailed"}},
    {"WaitAsyncSynched", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "D", "AsyncSyncSucceeded", "AsyncSyncFailed"}},
    {"AsyncLoadSucceeded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"AsyncLoadFailed", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"AsyncReloadSucceeded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"AsyncReloadFailed", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"AsyncSyncSucceeded", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"AsyncSyncFailed", {"W", "W", "X", ".", "D", "W", "X", ".", "D", "X", "X", "X"}},
    {"Destroyed", {"X", "X", "X", "X", "X", "X", "X", ".", "X", "X", "X", "X"}},
};

/// The work of a state that is entered: calls of the manager, calls of the protocol in brackets,
/// and the lock count. Then the next state.
struct Entering
{
    char const *state;
    std::vector<std::string> actions;
    char const *next;
};

inline std::vector<Entering> const enterings = {
    {"BeingRdLoaded", {"allocateRegion", "[load]", "+1"}, "RdLocked"},
    {"BeingWrLoaded", {"allocateRegion", "[load]", "[markDirty]", "+1"}, "WrLocked"},
    {"BeingAsyncLoaded", {"allocateRegion", "[asyncLoad]"}, "WaitAsyncLoaded"},
    {"BeingRdReloaded", {"allocateRegion", "[reload]", "+1"}, "RdLocked"},
    {"BeingWrReloaded", {"allocateRegion", "[reload]", "[markDirty]", "+1"}, "WrLocked"},
    {"BeingAsyncReloaded", {"allocateRegion", "[asyncReload]"}, "WaitAsyncReloaded"},
    {"BeingSynched", {"[sync]"}, "Synched"},
    {"BeingAsyncSynched", {"[asyncSync]"}, "WaitAsyncSynched"},
    {"BeingUnlocked", {"[unlocked]"}, "Loaded"},
    {"BeingUnloaded", {"[unload]", "deallocateRegion"}, "Unloaded"},
    {"BeingFreed", {"[free]", "deallocateRegion"}, "Freed"},
    {"BeingDestroyed", {"[free]", "deallocateRegion"}, "Destroyed"},
    {"AsyncLoadSucceeded", {"[asyncLoadSucceeded]"}, "Loaded"},
    {"AsyncLoadFailed", {"[asyncLoadFailed]"}, "Freed"},
    {"AsyncReloadSucceeded", {"[asyncReloadSucceeded]"}, "Loaded"},
    {"AsyncReloadFailed", {"[asyncReloadFailed]"}, "Unloaded"},
    {"AsyncSyncSucceeded", {"[asyncSyncSucceeded]"}, "Synched"},
    {"AsyncSyncFailed", {"[asyncSyncFailed]"}, "Loaded"},
    {"Loaded", {"bufferUnloadable"}, ""},
    {"Synched", {"bufferUnloadable"}, ""},
};
// clang-format on

inline std::string cellOf(std::string const &state, int event)
{
    auto const row = std::find_if(std::begin(table), std::end(table),
                                  [&](Row const &candidate) { return state == candidate.state; });
    return row->cells[event];
}

inline Entering const *enteringOf(std::string const &state)
{
    auto const found =
        std::find_if(enterings.begin(), enterings.end(),
                     [&](Entering const &candidate) { return state == candidate.state; });
    return found == enterings.end() ? nullptr : &*found;
}

inline bool isInStrategy(std::string const &state)
{
    return state == "Loaded" || state == "Synched";
}

enum class Status
{
    IDLE,
    RUNNABLE,
    IN_PROTOCOL,
    WAITING
};

constexpr int NOBODY = -1;

constexpr int RDLOCK = 0;
constexpr int WRLOCK = 1;
constexpr int UNLOCK = 6;
constexpr int UNLOAD = 7;
constexpr int ASYNC_OP_SUCCEEDED = 10;

struct Frame
{
    enum Kind
    {
        DELIVER, // one event, until it is done
        CHANGE,  // a run from state to state
        PENDING, // the postponed events
        HOOK,    // inside a call of the protocol
        UNWIND   // an exception on its way to the caller
    };

    Kind kind;
    int event = 0;
    int formerCount = 0; // of a lock
    bool isDone = false;
    std::string outcome = {};
    std::string former = {};
    int formerOwner = NOBODY;
    std::string next = {};
    std::size_t action = 0;
    std::uint32_t mask = 0;
};

struct Thread
{
    Status status = Status::IDLE;
    std::string
        outcome; // of the last event: nothing, "illegal EVENT() STATE", "assertion", "failure"
    std::vector<Frame> frames;
};

struct Config
{
    std::string state = "Freed";
    int lockCount = 0;
    std::uint32_t pending = 0;
    int owner = NOBODY;
    bool hasRegion = false;
    std::vector<Thread> threads;
    /// The number of the call of `bufferNotUnloadable` or `bufferUnloadable` that fails, from 1 on,
    /// or 0 for none.
    int failing = 0;
    std::vector<std::string> log;
    std::vector<std::string> trace;

    std::string toString() const
    {
        std::ostringstream text;
        text << state << " count " << lockCount << " pending " << pending << " owner " << owner
             << " region " << hasRegion;
        for (Thread const &thread : threads)
            text << " | " << static_cast<int>(thread.status) << ' ' << thread.outcome;
        for (std::string const &line : log)
            text << "\n  " << line;
        return text.str();
    }
    /// Adds what cannot be observed: the frames of each thread.
    std::string toFullString() const
    {
        std::ostringstream text;
        text << toString();
        for (Thread const &thread : threads) {
            text << "\n|";
            for (Frame const &frame : thread.frames)
                text << ' ' << frame.kind << ',' << frame.event << ',' << frame.formerCount << ','
                     << frame.isDone << ',' << frame.outcome << ',' << frame.former << ','
                     << frame.formerOwner << ',' << frame.next << ',' << frame.action << ','
                     << frame.mask;
        }
        return text.str();
    }
};

class Interpreter
{
public:
    explicit Interpreter(Config &config) : _config(config) {}

    /// Lets a thread deliver an event. It must be idle or in a call of the protocol.
    void begin(int thread, int event)
    {
        Thread &self = _config.threads[thread];
        if (self.status == Status::IN_PROTOCOL)
            self.frames.push_back({.kind = Frame::HOOK});
        self.outcome.clear();
        self.status = Status::RUNNABLE;
        self.frames.push_back({.kind = Frame::DELIVER, .event = event});
    }
    /// The call of the protocol returns.
    void returnFromProtocol(int thread)
    {
        Thread &self = _config.threads[thread];
        self.outcome.clear();
        self.status = Status::RUNNABLE;
        ++self.frames.back().action;
    }
    /// The call of the protocol throws.
    void throwFromProtocol(int thread)
    {
        Thread &self = _config.threads[thread];
        self.outcome.clear();
        self.status = Status::RUNNABLE;
        auto const &actions = enteringOf(_config.state)->actions;
        if (actions.front() == "allocateRegion")
            say("deallocateRegion");
        failRun(thread);
    }
    /// Runs a thread until it stops.
    void run(int thread)
    {
        Thread &self = _config.threads[thread];
        while (self.status == Status::RUNNABLE) {
            if (self.frames.empty()) {
                self.status = Status::IDLE;
                break;
            }
            switch (self.frames.back().kind) {
            case Frame::DELIVER:
                deliver(thread);
                break;
            case Frame::CHANGE:
                change(thread);
                break;
            case Frame::UNWIND: {
                std::string const outcome = self.frames.back().outcome;
                self.frames.pop_back();
                unwind(thread, outcome);
                break;
            }
            case Frame::PENDING:
                deliverPending(self);
                break;
            case Frame::HOOK:
                self.frames.pop_back();
                self.status = Status::IN_PROTOCOL;
                break;
            }
        }
    }

private:
    /// Returns false if the manager fails.
    bool say(std::string const &line)
    {
        _config.log.push_back(line);
        if (line == "allocateRegion")
            _config.hasRegion = true;
        else if (line == "deallocateRegion")
            _config.hasRegion = false;
        else if ((line == "bufferNotUnloadable" || line == "bufferUnloadable") &&
                 _config.failing != 0)
            return --_config.failing != 0;
        return true;
    }
    void trace(std::string const &what)
    {
        std::ostringstream line;
        line << " [ Lock count = " << _config.lockCount << " ] -->  " << _config.state
             << "::" << what;
        _config.trace.push_back(line.str());
    }
    void announce()
    {
        for (Thread &thread : _config.threads)
            if (thread.status == Status::WAITING)
                thread.status = Status::RUNNABLE;
    }

    void deliver(int thread)
    {
        Thread &self = _config.threads[thread];
        if (self.frames.back().isDone) {
            self.frames.pop_back();
            return;
        }
        int const event = self.frames.back().event;
        std::uint32_t const bit = std::uint32_t{1} << event;
        std::string cell = cellOf(_config.state, event);
        // A load cannot succeed if the region is gone.
        if (event == ASYNC_OP_SUCCEEDED && cell.find("oadSucceeded") != std::string::npos &&
            !_config.hasRegion)
            cell = "X";
        bool const isOwner = _config.owner == thread;
        if (cell == "X")
            return unwind(thread,
                          std::string("illegal ") + eventNames[event] + "() " + _config.state);
        trace(event == UNLOAD && cell == "." ? "unload (ignored)" : eventNames[event]);
        if (cell == "W" || (cell == "D" && !isOwner)) {
            if (isOwner)
                return unwind(thread, "assertion");
            self.status = Status::WAITING;
            return;
        }
        self.frames.back().isDone = true;
        self.frames.back().former = _config.state;
        self.frames.back().formerCount = _config.lockCount;
        if (cell == "D" || cell == "Q")
            _config.pending |= bit;
        else if (cell == "touch") {
            if (!say("bufferNotUnloadable") || !say("bufferUnloadable"))
                return unwind(thread, "failure");
        } else if (cell == "+1")
            ++_config.lockCount;
        else if (cell.rfind("+1 ", 0) == 0) {
            ++_config.lockCount;
            start(self, thread, cell.substr(3));
        } else if (cell.rfind("-1 ", 0) == 0) {
            if (--_config.lockCount == 0)
                start(self, thread, cell.substr(3));
        } else if (cell.rfind("dealloc ", 0) == 0) {
            say("deallocateRegion");
            start(self, thread, cell.substr(8));
        } else if (cell != ".")
            start(self, thread, cell);
    }

    void start(Thread &self, int thread, std::string const &next)
    {
        self.frames.push_back({.kind = Frame::CHANGE,
                               .former = _config.state,
                               .formerOwner = _config.owner,
                               .next = next});
        _config.owner = thread;
    }

    void change(int thread)
    {
        Thread &self = _config.threads[thread];
        if (self.frames.back().isDone) {
            endRun(self.frames.back());
            self.frames.pop_back();
            return;
        }
        if (!self.frames.back().next.empty()) {
            if (isInStrategy(_config.state) && !say("bufferNotUnloadable"))
                return failRun(thread);
            _config.state = self.frames.back().next;
            self.frames.back().next.clear();
            self.frames.back().action = 0;
            if (enteringOf(_config.state))
                trace("entering");
        }
        Entering const * const entering = enteringOf(_config.state);
        if (entering) {
            auto const &actions = entering->actions;
            for (std::size_t &i = self.frames.back().action; i < actions.size(); ++i) {
                if (actions[i] == "+1")
                    ++_config.lockCount;
                else if (actions[i].front() != '[') {
                    if (!say(actions[i]))
                        return failRun(thread);
                } else {
                    say(actions[i].substr(1, actions[i].size() - 2));
                    self.status = Status::IN_PROTOCOL;
                    return;
                }
            }
            self.frames.back().next = entering->next;
            if (!self.frames.back().next.empty())
                return;
        }
        self.frames.back().isDone = true;
        // The thread is the owner until these are delivered.
        if (_config.pending != 0) {
            self.frames.push_back({.kind = Frame::PENDING, .mask = _config.pending});
            _config.pending = 0;
        }
    }

    void deliverPending(Thread &self)
    {
        std::uint32_t &mask = self.frames.back().mask;
        if (mask == 0) {
            self.frames.pop_back();
            return;
        }
        int const event = std::countr_zero(mask);
        mask &= mask - 1;
        self.frames.push_back({.kind = Frame::DELIVER, .event = event});
    }

    /// A step of a run fails. The buffer returns to the state in which the run began.
    void failRun(int thread)
    {
        Thread &self = _config.threads[thread];
        fallBack(self.frames.back());
        self.frames.pop_back();
        unwind(thread, "failure");
    }
    void fallBack(Frame const &change)
    {
        if (isInStrategy(_config.state))
            say("bufferNotUnloadable");
        _config.state = change.former;
        if (enteringOf(_config.state))
            trace("entering");
        if (isInStrategy(_config.state))
            say("bufferUnloadable");
        endRun(change);
    }
    void endRun(Frame const &change)
    {
        _config.owner = change.formerOwner;
        announce();
    }

    void unwind(int thread, std::string const &what)
    {
        Thread &self = _config.threads[thread];
        while (!self.frames.empty() && self.frames.back().kind != Frame::HOOK) {
            Frame const frame = self.frames.back();
            // An exception while the lock is released is traced and not thrown.
            if (frame.kind == Frame::UNWIND)
                return;
            self.frames.pop_back();
            // Only the delivery of postponed events can fail here.
            if (frame.kind == Frame::CHANGE)
                endRun(frame);
            // A lock event that fails gives its lock back.
            if (frame.kind == Frame::DELIVER && frame.isDone &&
                (frame.event == RDLOCK || frame.event == WRLOCK)) {
                if (_config.state == frame.former) {
                    _config.lockCount = frame.formerCount;
                } else {
                    self.frames.push_back({.kind = Frame::UNWIND, .outcome = what});
                    self.frames.push_back({.kind = Frame::DELIVER, .event = UNLOCK});
                    return;
                }
            }
        }
        self.outcome = what;
    }

    Config &_config;
};

/// Adds all configurations that can follow from this one if no thread can continue, by their full
/// text.
inline void settle(Config const &config, std::map<std::string, Config> &results)
{
    bool isSettled = true;
    for (std::size_t i = 0; i < config.threads.size(); ++i) {
        if (config.threads[i].status != Status::RUNNABLE)
            continue;
        isSettled = false;
        Config next(config);
        Interpreter(next).run(static_cast<int>(i));
        settle(next, results);
    }
    if (isSettled)
        results.emplace(config.toFullString(), config);
}

} // namespace ZvTest::Model
