// Where an asynchronous operation reports its end.
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// The end of an operation that somebody else carries out: he calls one of the two completions, once, from any thread,
/// also before the call that began the operation has returned. The handle belongs to whoever handed it out.
class ZVRESMGT_EXPORT LkAsyncHandle
{
public:
    LkAsyncHandle();
    LkAsyncHandle(LkAsyncHandle const &);
    LkAsyncHandle &operator=(LkAsyncHandle const &);
    virtual ~LkAsyncHandle() noexcept(false);

    /// The operation has been carried out.
    virtual void performSucceeded() = 0;
    /// The operation has failed.
    virtual void performFailed() = 0;
};

} // namespace Zv
