// Buffer that a test puts into any state.
#pragma once

#include "model.h"
#include "recording.h"
#include "zvbase/failures.h"

#include <regex>

namespace ZvTest {

template <bool isTracing>
std::map<std::string, MbState const *> statesOf()
{
    initialState(isTracing);
    std::map<std::string, MbState const *> states;
    for (MbState const * const state : MbStates<isTracing>::the)
        states[static_cast<MbStateImp const *>(state)->getName()] = state;
    return states;
}

inline MbState const *stateOf(bool isTracing, std::string const &name)
{
    return (isTracing ? statesOf<true>() : statesOf<false>()).at(name);
}

inline MbEvent eventOf(int number)
{
    return static_cast<MbEvent>(std::uint32_t{1} << number);
}

/// A buffer in a state of the test's choice. The destructor returns it to Freed.
class Scene
{
public:
    explicit Scene(bool isTracing, std::string const &state, int lockCount = 0)
        : _isTracing(isTracing)
    {
        LkGuard<LkMutex const> const guard(probe.mutex());
        control->log.take();
        manager->allocateRegion(&probe.imp);
        probe.setState(stateOf(isTracing, state));
        probe.setLockCount(lockCount);
        control->log.take();
    }
    ~Scene()
    {
        LkGuard<LkMutex const> const guard(probe.mutex());
        manager->hook = nullptr;
        if (probe.imp.getRegionStart() != 0)
            manager->deallocateRegion(&probe.imp);
        probe.setOwner(LkThreadId());
        probe.setState(stateOf(_isTracing, "Freed"));
        probe.setPending(0);
    }

    /// Delivers an event. Returns its exception in the words of the model.
    std::string deliver(int event)
    {
        return outcomeOf([&] { probe.imp.receive(eventOf(event)); });
    }
    std::string deliverLocked(int event)
    {
        return outcomeOf([&] { probe.imp.deliver(eventOf(event)); });
    }

private:
    template <class Function>
    static std::string outcomeOf(Function function)
    {
        try {
            function();
            return "";
        } catch (MbEx::ExIllegalTransition const &failure) {
            std::smatch match;
            std::string const reason = failure.getReason();
            static std::regex const form(
                "Illegal transition: buffer b received event (.*) from state (.*)\\.");
            if (!std::regex_match(reason, match, form))
                return reason;
            return "illegal " + match.str(1) + ' ' + match.str(2);
        } catch (AssertionFailed const &failure) {
            return std::string("assertion ") + failure.getExpression();
        } catch (Failure const &failure) {
            return std::string("failure ") + failure.what();
        }
    }

    bool const _isTracing;

public:
    std::shared_ptr<RecordingProtocol::Control> control =
        std::make_shared<RecordingProtocol::Control>();
    RCShdPtr<RecordingManager> manager{new RecordingManager(control->log)};
    MbBuffer buffer =
        MbBufferSimpleFactory(initialState(_isTracing), manager)
            .create("b", makeObj<RecordingProtocol>(control), 10, MbAlignment(7, 0, 0));
    MbBufferProbe probe{buffer};
};

} // namespace ZvTest
