// The semaphore that can wait with a time-out.
#pragma once

#include "resmgt/locks/lkCondVar.h"
#include "resmgt/locks/lkMutex.h"

namespace Zv {

/// A counting semaphore over a mutex and a condition variable. Any thread may call anything; the name is not copied.
/// Without a time-out, `LkUnnamedSema` is cheaper, and stands a waiter that is killed, as this one does not.
class ZVRESMGT_EXPORT LkSema
{
public:
    LkSema(char const *name, unsigned count,
           LkMutexAttr const &mutexAttr = LkMutexAttr::getDefaultAttr(),
           LkCondVarAttr const &condVarAttr = LkCondVarAttr::getDefaultAttr());
    LkSema(LkSema const &) = delete;
    LkSema &operator=(LkSema const &) = delete;

    /// Blocks until the count is above 0, then takes 1 from it.
    void wait();
    /// The same for a time in seconds, which starts anew whenever another thread was faster. False when it is over.
    [[nodiscard]] bool timedWait(double seconds);
    template <LkDuration Duration>
    [[nodiscard]] bool timedWait(Duration const &time)
    {
        return timedWait(LkUtil::toSeconds(time));
    }
    /// Takes 1 where the count is above 0. Never waits for a post.
    [[nodiscard]] bool tryWait();
    /// Adds 1 and wakes one who waits.
    void post();
    /// True when the count is 0: the sense of the name is inverted, and stays so.
    bool isCountNonZero() const;
    char const *getName() const noexcept { return _name; }

private:
    template <class Wait>
    bool waitCounted(Wait wait) ZV_REQUIRES(_lock);
    void signalNoLock() ZV_REQUIRES(_lock);

    char const *_name;
    unsigned _count; // written under _lock, read without
    LkMutex _lock;
    LkCondVar _nonZero;
    unsigned _nbWaiters ZV_GUARDED_BY(_lock);
};

} // namespace Zv
