// Alarms: the cues of a show are called at their times, and one is cancelled.
//
// All alarms of a process are called on one thread. So a callback only passes the cue on to the
// thread that runs the show.
//
// Prints:
//
//     house lights down
//     curtain up
//     music
//     the fireworks are cancelled

#include <resmgt/threadExtensions.h>
#include <zvbase/zvbase.h>

#include <iostream>
#include <optional>
#include <queue>

using namespace Zv;

namespace {

using Calls = MtContainer<std::queue<LiString>>;

/// A cue that is called at its moment, unless it is destroyed before.
class Cue final : public MtAlarmHandle::Callback
{
public:
    /// `moment` is in seconds of the monotonic clock. `calls` gets the name, and must outlive the
    /// cue.
    Cue(LiString const &name, double moment, Calls &calls) : _name(name), _calls(calls)
    {
        _alarm->setCallback(this);
        _alarm->setAlarmTime(moment);
        MtAlarmManager::getInstance().registerAlarm(_alarm);
    }
    Cue(Cue const &) = delete;
    Cue &operator=(Cue const &) = delete;
    /// Waits for the callback if it runs.
    ~Cue() noexcept(false) override { MtAlarmManager::getInstance().deregisterAlarm(_alarm); }

    void performAlarm(RCShdPtr<MtAlarmHandle>, bool goingAway) override
    {
        if (!goingAway)
            _calls.produce(_name);
    }

private:
    LiString const _name;
    Calls &_calls;
    RCShdPtr<MtAlarmHandle> const _alarm = MtAlarmManager::getInstance().createHandle();
};

} // namespace

int main()
{
    InPackageScope const packages;
    Calls calls("calls");
    double const start = Sleeper::getInstance().getTime();
    Cue const lights("house lights down", start + 0.02, calls);
    Cue const curtain("curtain up", start + 0.04, calls);
    Cue const music("music", start + 0.06, calls);
    std::optional<Cue> fireworks(std::in_place, "fireworks", start + 3600, calls);

    for (int nbCalls = 0; nbCalls < 3; ++nbCalls) {
        LiString cue;
        if (!calls.timedConsume(cue, 10)) { // seconds
            std::cerr << "a cue has not been called\n";
            return 1;
        }
        std::cout << cue << '\n';
    }
    fireworks.reset();
    std::cout << "the fireworks are cancelled\n";
}
