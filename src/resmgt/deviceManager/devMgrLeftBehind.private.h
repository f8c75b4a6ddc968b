// Objects that are kept until the process ends, because a thread that hangs may use them.
#pragma once

#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/immortal.h"

#include <new>

namespace Zv {

/// List of the objects that are kept until the process ends. Leak checkers find the objects through
/// it.
class DevMgrLeftBehind
{
public:
    /// Keeps the object. Never throws. If there is no memory, the object is kept, but leak checkers
    /// do not find it.
    template <class T>
    static void keep(RCShdPtr<T> const &object)
    {
        struct Kept final : DevMgrLeftBehind
        {
            explicit Kept(RCShdPtr<T> const &kept) : object(kept) {}
            RCShdPtr<T> const object;
        };
        if (auto * const kept = new (std::nothrow) Kept(object))
            kept->enter();
        else
            Immortal<RCShdPtr<T>>{object};
    }

private:
    void enter();

    DevMgrLeftBehind *_next = nullptr;
};

} // namespace Zv
