// Cues: actions at given frames of a recording.
#pragma once

#include "timeline.h"

#include <resmgt/locks.h>
#include <resmgt/threadExtensions.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

/// Runs actions at their frames, on the thread of the alarm manager. If there is a clock, an action
/// is due at the moment of its frame. If the player is late, or if there is no clock, the action
/// runs when the player reaches the frame. The player waits until the action has been carried out,
/// so that it takes effect between the right two frames.
class Cues
{
public:
    struct Cue
    {
        std::int64_t frame;
        std::string text;             // shown to the user
        std::function<void()> action; // must not throw
    };

    Cues() = default;
    Cues(Cues const &) = delete;
    Cues &operator=(Cues const &) = delete;
    ~Cues() noexcept(false);

    /// Sets all cues. Must be called before the player begins. `onDone` is called on the alarm
    /// manager's thread after each action has returned. It must have `countHappened` called when
    /// what the action asked for is done.
    void set(std::vector<Cue> cues, std::function<void()> onDone);
    /// Schedules all cues. Frame 0 is played at `moment`, and each frame an interval after the one
    /// before.
    void start(double moment, double interval);
    /// Returns whether the player must wait for a cue at this frame. The player calls it before
    /// each frame.
    bool isHeld(std::int64_t frame);
    /// Counts the next cue as carried out. Any thread may call it.
    void countHappened();
    /// Ends the cues. No action begins after the call, and the call waits for an action that is
    /// running. The devices must still run.
    void stop();

    /// Returns the cues that were carried out since the last call.
    std::vector<Cue> takeHappened();
    /// Returns the cues that were carried out.
    std::vector<Cue> getHappened() const;
    /// Returns the cues that were not carried out.
    std::vector<Cue> getOthers() const;

private:
    /// Alarm of one cue.
    class Alarm final : public Zv::MtAlarmHandle::Callback
    {
    public:
        Alarm(Cues &cues, std::size_t index) : _cues(cues), _index(index) {}

        void performAlarm(Zv::RCShdPtr<Zv::MtAlarmHandle> handle, bool goingAway) override;

        // Null until the cue is scheduled. Guarded by the lock of the cues.
        Zv::RCShdPtr<Zv::MtAlarmHandle> handle;

    private:
        Cues &_cues;
        std::size_t _index;
    };

    bool mayHappen(std::size_t index);
    void schedule(std::size_t index, double moment) ZV_REQUIRES(_lock);

    Zv::LkLock mutable _lock{"Cues"};
    // `set` sets the next three, and nothing changes them afterwards, except the handles of alarms.
    std::vector<Cue> _cues; // by frame
    std::function<void()> _onDone;
    std::deque<Alarm> _alarms; // one for each cue
    // By cue: its moment has passed, and it waits for the player.
    std::vector<bool> _isDue ZV_GUARDED_BY(_lock);
    std::int64_t _reached ZV_GUARDED_BY(_lock) = -1;
    std::size_t _nbBegun ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbHappened ZV_GUARDED_BY(_lock) = 0;
    std::size_t _nbTaken ZV_GUARDED_BY(_lock) = 0;
    bool _isStopped ZV_GUARDED_BY(_lock) = false;
};
