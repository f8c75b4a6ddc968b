// Objects that are kept for the rest of the process, because a thread that hangs may use them.
#pragma once

#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/immortal.h"

#include <new>

namespace Zv {

/// A list of what was left behind, in which leak checkers find it.
class DevMgrLeftBehind
{
public:
    /// Keeps the object. Never throws: without memory the object is kept, but not found.
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
