// The events of a show, on their way.
#pragma once

#include "timeline.h"

#include <resmgt/locks.h>
#include <resmgt/threadExtensions.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

/// Lets things happen at their frames, on the thread of the alarm manager. By the clock each has its moment; where the
/// player is late, or there is no clock, it has it when the player gets there. The player holds until it has happened,
/// so that it happens between the right two frames.
class Cues
{
public:
    struct Cue
    {
        std::int64_t frame;
        std::string text;             // for the user
        std::function<void()> action; // throws nothing
    };

    Cues() = default;
    Cues(Cues const &) = delete;
    Cues &operator=(Cues const &) = delete;
    ~Cues() noexcept(false);

    /// All cues, before the player begins. `onDone` is called when the action of one has returned, on the alarm manager's
    /// thread: it sees to it that `countHappened` is called when what the action has asked for is done.
    void set(std::vector<Cue> cues, std::function<void()> onDone);
    /// Frame 0 is played at `moment`, and each frame an interval later.
    void start(double moment, double interval);
    /// For the player, before each frame: whether it has to wait for what happens at this one.
    bool isHeld(std::int64_t frame);
    /// The next one has happened. Any thread.
    void countHappened();
    /// Nothing happens any more from here on. The devices still run.
    void stop();

    /// Those that have happened since the last call.
    std::vector<Cue> takeHappened();
    std::vector<Cue> getHappened() const;
    std::vector<Cue> getOthers() const;

private:
    /// Of one cue.
    class Alarm final : public Zv::MtAlarmHandle::Callback
    {
    public:
        Alarm(Cues &cues, std::size_t index) : _cues(cues), _index(index) {}

        void performAlarm(Zv::RCShdPtr<Zv::MtAlarmHandle> handle, bool goingAway) override;

        Zv::RCShdPtr<Zv::MtAlarmHandle>
            handle; // null before the cue is scheduled; guarded by the lock of the cues

    private:
        Cues &_cues;
        std::size_t _index;
    };

    bool mayHappen(std::size_t index);
    void schedule(std::size_t index, double moment) ZV_REQUIRES(_lock);

    Zv::LkLock mutable _lock{"Cues"};
    std::vector<Cue> _cues; // by frame; unchanged from `set` on, as is what follows
    std::function<void()> _onDone;
    std::deque<Alarm> _alarms;                     // of all cues
    std::vector<bool> _isDue ZV_GUARDED_BY(_lock); // its moment has come, and the player has not
    std::int64_t _reached ZV_GUARDED_BY(_lock) = -1;
    std::size_t _nbBegun ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbHappened ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbTaken ZV_GUARDED_BY(_lock) = 0;
    bool _isStopped ZV_GUARDED_BY(_lock) = false;
};
