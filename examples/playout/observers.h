// Observers of properties and of device states.
#pragma once

#include "playoutJob.h"

#include <resmgt/deviceManager.h>

#include <zvbase/zvbase.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

/// Sets a mark and wakes the client when a property changes. It is called on the manager's thread,
/// which must not wait for a device. The client's own thread reads the value.
class PropertyObserver final : public Zv::DevMgrPropertyObserver
{
public:
    explicit PropertyObserver(Zv::RCShdPtr<PlayoutJob> const &job) : _job(job) {}

    void update(Zv::DevMgrPropertyObserverHint const &) override
    {
        _isMarked = true;
        _job->wake();
    }
    bool takeMark() { return _isMarked.exchange(false); }

private:
    Zv::RCShdPtr<PlayoutJob> _job;
    std::atomic<bool> _isMarked = false;
};

/// Records the changes of state. It is called on the supervisor's thread while the devices wait.
/// The client's own thread shows the changes.
class StateObserver final : public Zv::DevSeqObserver
{
public:
    /// Change of a device to another state.
    struct Move
    {
        double time; // of the monotonic clock
        std::string device;
        std::string state;
    };

    explicit StateObserver(Zv::RCShdPtr<PlayoutJob> const &job) : _job(job) {}

    void stateChanged(Zv::LiString const &device, Zv::LiString const &state) override
    {
        {
            Zv::LkGuard<Zv::LkLock const> const guard(_lock);
            _moves.push_back(
                {Zv::Sleeper::getInstance().getTime(), device.getChars(), state.getChars()});
        }
        _job->wake();
    }
    std::vector<Move> takeMoves()
    {
        Zv::LkGuard<Zv::LkLock const> const guard(_lock);
        return std::exchange(_moves, {});
    }

private:
    Zv::RCShdPtr<PlayoutJob> _job;
    Zv::LkLock _lock{"StateObserver"};
    std::vector<Move> _moves;
};
