// Runs calls that must not block the main thread.
#pragma once

#include "playoutJob.h"
#include "taskPool.h"

#include <resmgt/locks.h>

#include <exception>
#include <functional>
#include <memory>

/// Makes calls that may wait for a device, one at a time, on a thread of its own. A call that does
/// not return can be left behind with its thread. Only one thread may use the object.
/// `PlayoutJob::wake` is called when a call has returned.
class Errands
{
public:
    explicit Errands(Zv::RCShdPtr<PlayoutJob> const &job);
    Errands(Errands const &) = delete;
    Errands &operator=(Errands const &) = delete;
    /// Waits for a call that is running and was not left behind.
    ~Errands() noexcept(false);

    /// Begins a call. The previous call must have been collected or left behind.
    void begin(std::function<void()> call);
    /// Returns whether a call was begun and neither collected nor left behind.
    bool isPending() const { return !_call.isNull(); }
    /// Returns whether the call that is pending has returned. Throws what the call has thrown.
    bool collect();
    /// Gives up the call and its thread. What the call refers to must live until the process ends.
    void leaveBehind();
    bool hasLeftBehind() const { return _hasLeftBehind; }

private:
    class Call;

    Zv::RCShdPtr<PlayoutJob> _job;
    Zv::RCShdPtr<Call> _call;
    std::unique_ptr<TaskPool> _pool;
    bool _hasLeftBehind = false;
};
