// Calls that must not hold up the main thread.
#pragma once

#include "playoutJob.h"
#include "taskPool.h"

#include <resmgt/locks.h>

#include <exception>
#include <functional>
#include <memory>

/// Makes calls that a device may keep waiting, one at a time, on a thread of its own. One that does
/// not return is left behind with its thread. For one thread, which `PlayoutJob::wake` wakes when a
/// call has returned.
class Errands
{
public:
    explicit Errands(Zv::RCShdPtr<PlayoutJob> const &job);
    Errands(Errands const &) = delete;
    Errands &operator=(Errands const &) = delete;
    /// Waits for the call that is under way.
    ~Errands() noexcept(false);

    /// Begins a call. The one before must have been collected or left behind.
    void begin(std::function<void()> call);
    /// Whether a call was begun and neither collected nor left behind.
    bool isPending() const { return !_call.isNull(); }
    /// Returns true when the call has returned, and throws what it has thrown. Returns false while
    /// it is under way.
    bool collect();
    /// Gives the call up. What it refers to must live until the process ends.
    void leaveBehind();
    bool hasLeftBehind() const { return _hasLeftBehind; }

private:
    class Call;

    Zv::RCShdPtr<PlayoutJob> _job;
    Zv::RCShdPtr<Call> _call;
    std::unique_ptr<TaskPool> _pool;
    bool _hasLeftBehind = false;
};
